#include "station/results/reserved_numbers.h"

#include <fmt/format.h>
#include <sys/file.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "posix/sha256.h"
#include "station/commands/errors.h"
#include "station/results/record.h"

namespace station {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void ThrowLost(const std::string& path) {
  throw OutputLost(fmt::format("{} cannot be written: {}", path, std::generic_category().message(errno)));
}

}  // namespace

ReservedNumbers::ReservedNumbers(const ResultsAddress& address, const std::string& pool) : pool_(pool) {
  const fs::path folder = address.SpoolFolder();
  std::error_code error;
  fs::create_directories(folder, error);
  // The pool's name may hold what a file's name may not.
  constexpr std::size_t ENOUGH = 16;
  path_ = folder / ("numbers-" + posix::Sha256(pool).substr(0, ENOUGH) + ".json");
  lock_.Reset(open((path_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!lock_.IsOpen() || flock(lock_.Get(), LOCK_EX) != 0) ThrowLost(path_);
  Read();
}

void ReservedNumbers::Read() {
  std::ifstream file(path_);
  const auto object = nlohmann::json::parse(file, nullptr, false);
  if (!object.is_object()) {
    block_ = NewRunId();
    return;
  }
  block_ = object.value("block", "");
  for (const auto& entry : object["numbers"]) {
    entries_.push_back({entry.value("value", ""),
                        {entry.value("phone", ""), entry.value("run", ""), entry.value("station", "")}});
  }
}

void ReservedNumbers::Write() const {
  nlohmann::json object = {{"pool", pool_}, {"block", block_}, {"numbers", nlohmann::json::array()}};
  for (const Entry& entry : entries_) {
    object["numbers"].push_back({{"value", entry.value},
                                 {"phone", entry.receiver.phone},
                                 {"run", entry.receiver.run},
                                 {"station", entry.receiver.station}});
  }
  const std::string text = object.dump(1, ' ', false, nlohmann::json::error_handler_t::replace);
  const std::string fresh = path_ + ".new";
  const posix::FileDescriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (!file.IsOpen()) ThrowLost(path_);
  if (write(file.Get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
      fsync(file.Get()) != 0)
    ThrowLost(path_);
  if (rename(fresh.c_str(), path_.c_str()) != 0) ThrowLost(path_);
  const posix::FileDescriptor folder(open(fs::path(path_).parent_path().c_str(), O_RDONLY | O_CLOEXEC));
  if (fsync(folder.Get()) != 0) ThrowLost(path_);
}

std::optional<DrawnNumber> ReservedNumbers::Draw(const Receiver& receiver) {
  const auto of_phone = [&](const std::string& phone) {
    return std::ranges::find_if(entries_, [&](const Entry& entry) { return entry.receiver.phone == phone; });
  };
  if (const auto had = of_phone(receiver.phone); had != entries_.end()) return DrawnNumber{had->value, false};
  const auto next = of_phone("");
  if (next == entries_.end()) return std::nullopt;
  next->receiver = receiver;
  Write();
  return DrawnNumber{next->value, true};
}

void ReservedNumbers::Settle(Connection& connection, std::size_t count) {
  const bool given_out =
      std::ranges::any_of(entries_, [](const Entry& entry) { return !entry.receiver.phone.empty(); });
  const auto left = static_cast<std::size_t>(
      std::ranges::count_if(entries_, [](const Entry& entry) { return entry.receiver.phone.empty(); }));
  if (!given_out && left >= count) return;
  // The block's name has to be on the disk before numbers go to it.
  if (entries_.empty()) Write();
  for (const Entry& entry : entries_) {
    if (!entry.receiver.phone.empty()) SettleReserved(connection, entry.value, entry.receiver);
  }
  entries_.clear();
  for (const std::string& value : ReserveNumbers(connection, pool_, block_, count))
    entries_.push_back({value, {}});
  Write();
}

}  // namespace station
