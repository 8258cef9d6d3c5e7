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

// The pool's name may hold what a file's name may not.
fs::path FileOf(const ResultsAddress& address, const std::string& pool) {
  constexpr std::size_t ENOUGH = 16;
  return address.SpoolFolder() / ("numbers-" + posix::Sha256(pool).substr(0, ENOUGH) + ".json");
}

}  // namespace

bool ReservedNumbers::Exist(const ResultsAddress& address, const std::string& pool) {
  std::error_code error;
  return fs::exists(FileOf(address, pool), error) || error;
}

ReservedNumbers::ReservedNumbers(const ResultsAddress& address, const std::string& pool)
    : pool_(pool), path_(FileOf(address, pool)) {
  std::error_code error;
  fs::create_directories(fs::path(path_).parent_path(), error);
  lock_.Reset(open((path_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!lock_.IsOpen() || flock(lock_.Get(), LOCK_EX) != 0) ThrowLost(path_);
  Read();
}

void ReservedNumbers::Read() {
  std::error_code error;
  if (!fs::exists(path_, error)) {
    block_ = NewRunId();
    return;
  }
  try {
    std::ifstream file(path_);
    const auto object = nlohmann::json::parse(file);
    block_ = object.at("block");
    for (const auto& entry : object.at("numbers"))
      entries_.push_back({entry.at("value"), {entry.at("phone"), entry.at("run"), entry.at("station")}});
  } catch (const nlohmann::json::exception&) {
    // Which phones got numbers from it is not known any longer: a person has to decide.
    throw UsageError(fmt::format(
        "the file of reserved numbers {} is damaged: if it is moved away, its numbers are given to no phone",
        path_));
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

void ReservedNumbers::Note(const std::string& value, const Receiver& receiver) {
  entries_.push_back({value, receiver});
  Write();
}

void ReservedNumbers::Settle(Connection& connection, std::size_t count, const std::string& station) {
  const bool given_out =
      std::ranges::any_of(entries_, [](const Entry& entry) { return !entry.receiver.phone.empty(); });
  const auto left = static_cast<std::size_t>(
      std::ranges::count_if(entries_, [](const Entry& entry) { return entry.receiver.phone.empty(); }));
  if (!given_out && left >= count) return;
  // The block's name has to be on the disk before numbers go to it.
  if (entries_.empty()) Write();
  for (const Entry& entry : entries_) {
    if (entry.receiver.phone.empty()) continue;
    SettleReserved(connection, entry.value, entry.receiver);
    MarkWritten(connection, entry.value);
  }
  entries_.clear();
  for (const std::string& value : ReserveNumbers(connection, pool_, block_, station, count))
    entries_.push_back({value, {}});
  Write();
}

std::int64_t ReservedNumbers::GiveBack(Connection& connection) {
  Settle(connection, 0);
  // The file loses them first: if the program ends now, this station does not use a number that the pool has
  // too.
  entries_.clear();
  Write();
  return GiveBackReserved(connection, pool_, block_);
}

void ReservedNumbers::SettleAll(Connection& connection) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(connection.Address().SpoolFolder(), error)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with("numbers-") || !name.ends_with(".json")) continue;
    std::ifstream file(entry.path());
    const auto object = nlohmann::json::parse(file, nullptr, false);
    if (!object.is_object() || !object.contains("pool") || !object["pool"].is_string()) continue;
    try {
      ReservedNumbers(connection.Address(), object["pool"]).Settle(connection, 0);
    } catch (const UsageError&) {
      // A damaged file is told of when a plan draws from the pool.
    } catch (const OutputLost&) {
      // The database knows; the file follows when the disk takes it.
    }
  }
}

}  // namespace station
