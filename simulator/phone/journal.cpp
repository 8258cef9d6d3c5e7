#include "simulator/phone/journal.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <string.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "posix/hex.h"

namespace simulator {
namespace {

size_t SizeOf(const JournalEntry& entry) {
  size_t size = entry.path.size() + entry.text.size() + entry.bytes_in.size() + entry.bytes_out.size();
  for (const std::string& argument : entry.arguments) size += argument.size();
  return size;
}

}  // namespace

JournalFilter OfKind(std::initializer_list<JournalKind> kinds) {
  return [wanted = std::vector<JournalKind>(kinds)](const JournalEntry& entry) {
    for (JournalKind kind : wanted) {
      if (entry.kind == kind) return true;
    }
    return false;
  };
}

JournalFilter AtPath(std::string path) {
  return [path = std::move(path)](const JournalEntry& entry) { return entry.path == path; };
}

JournalFilter Below(std::string path_start) {
  return [path_start = std::move(path_start)](const JournalEntry& entry) {
    return entry.path.starts_with(path_start);
  };
}

JournalFilter LineIs(std::string line) {
  return [line = std::move(line)](const JournalEntry& entry) { return entry.Line() == line; };
}

JournalFilter operator&&(JournalFilter left, JournalFilter right) {
  return [left = std::move(left), right = std::move(right)](const JournalEntry& entry) {
    return left(entry) && right(entry);
  };
}

JournalFilter operator||(JournalFilter left, JournalFilter right) {
  return [left = std::move(left), right = std::move(right)](const JournalEntry& entry) {
    return left(entry) || right(entry);
  };
}

void Journal::Add(JournalEntry entry) {
  const std::lock_guard lock(mutex_);
  entry.time =
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start_);
  bytes_ += SizeOf(entry);
  entries_.push_back(std::move(entry));
  if (listener_) listener_(entries_.back());
  DropOldest();
  added_.notify_all();
}

void Journal::Keep(size_t entries) {
  const std::lock_guard lock(mutex_);
  most_entries_ = entries;
  DropOldest();
}

void Journal::DropOldest() {
  while (entries_.size() > most_entries_ || (bytes_ > MOST_BYTES && entries_.size() > 1)) {
    bytes_ -= SizeOf(entries_.front());
    entries_.pop_front();
    ++dropped_;
  }
}

std::chrono::microseconds Journal::Now() const {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start_);
}

size_t Journal::Mark() const {
  const std::lock_guard lock(mutex_);
  return dropped_ + entries_.size();
}

// The place in entries_ of the first kept entry since a mark.
size_t Journal::Place(size_t mark) const {
  return std::min(mark - std::min(mark, dropped_), entries_.size());
}

std::vector<JournalEntry> Journal::Entries(size_t since, const JournalFilter& filter) const {
  const std::lock_guard lock(mutex_);
  std::vector<JournalEntry> passed;
  for (size_t index = Place(since); index < entries_.size(); ++index) {
    if (!filter || filter(entries_[index])) passed.push_back(entries_[index]);
  }
  return passed;
}

std::vector<std::string> Journal::Lines(size_t since, const JournalFilter& filter) const {
  std::vector<std::string> lines;
  for (const JournalEntry& entry : Entries(since, filter)) lines.push_back(entry.Line());
  return lines;
}

Journal::Piece Journal::Next(size_t mark, size_t most) const {
  const std::lock_guard lock(mutex_);
  Piece piece;
  if (mark < dropped_) piece.dropped = dropped_ - mark;
  const auto first = entries_.begin() + static_cast<std::ptrdiff_t>(Place(mark));
  const auto size = std::min<std::ptrdiff_t>(entries_.end() - first, static_cast<std::ptrdiff_t>(most));
  piece.entries.assign(first, first + size);
  piece.mark = dropped_ + static_cast<size_t>(first - entries_.begin() + size);
  return piece;
}

std::optional<JournalEntry> Journal::WaitFor(const JournalFilter& filter, size_t since,
                                             std::chrono::milliseconds time_out) const {
  const auto deadline = std::chrono::steady_clock::now() + time_out;
  std::unique_lock lock(mutex_);
  size_t next = since;
  while (true) {
    for (size_t index = Place(next); index < entries_.size(); ++index) {
      if (!filter || filter(entries_[index])) return entries_[index];
    }
    next = std::max(next, dropped_ + entries_.size());
    if (added_.wait_until(lock, deadline) == std::cv_status::timeout && next >= dropped_ + entries_.size()) {
      return std::nullopt;
    }
  }
}

void Journal::SetListener(std::function<void(const JournalEntry&)> listener) {
  const std::lock_guard lock(mutex_);
  listener_ = std::move(listener);
}

namespace {

constexpr std::array<std::string_view, 9> KIND_NAMES = {"open",  "request", "shell",   "tool", "value",
                                                        "sleep", "clock",   "console", "event"};

std::string_view KindName(JournalKind kind) {
  return KIND_NAMES[static_cast<size_t>(kind)];
}

std::string OpenFlags(int flags) {
  static constexpr struct {
    int flag;
    std::string_view name;
  } NAMES[] = {{O_CREAT, "+create"},       {O_EXCL, "+exclusive"},    {O_TRUNC, "+truncate"},
               {O_APPEND, "+append"},      {O_NONBLOCK, "+nonblock"}, {O_NOCTTY, "+noctty"},
               {O_SYNC, "+sync"},          {O_DIRECT, "+direct"},     {O_CLOEXEC, "+cloexec"},
               {O_DIRECTORY, "+directory"}};
  const int mode = flags & O_ACCMODE;
  std::string text = mode == O_RDONLY ? "r" : mode == O_WRONLY ? "w" : "rw";
  for (const auto& name : NAMES) {
    if ((flags & name.flag) == name.flag) text += name.name;
  }
  return text;
}

// Line ends and other controls as C writes them, so that an entry stays one line.
std::string OneLine(std::string_view text) {
  std::string line;
  for (char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (character == '\n') {
      line += "\\n";
    } else if (character == '\r') {
      line += "\\r";
    } else if (character == '\t') {
      line += "\\t";
    } else if (byte < 0x20 || byte == 0x7F) {
      line += fmt::format("\\x{:02x}", byte);
    } else {
      line += character;
    }
  }
  return line;
}

std::string ErrorName(int error) {
  const char* name = strerrorname_np(error);
  return name != nullptr ? name : std::to_string(error);
}

std::string Arguments(const JournalEntry& entry) {
  std::string text;
  for (size_t index = 1; index < entry.arguments.size(); ++index) text += " " + entry.arguments[index];
  return OneLine(text);
}

std::string What(const JournalEntry& entry) {
  switch (entry.kind) {
    case JournalKind::Open:
      return fmt::format("{} {}", entry.path, OpenFlags(entry.flags));
    case JournalKind::Request:
      return fmt::format("{} 0x{:08X}{}{}{}{}", entry.path, entry.request,
                         entry.bytes_in.empty() ? "" : " in ", posix::HexText(entry.bytes_in),
                         entry.bytes_out.empty() ? "" : " out ", posix::HexText(entry.bytes_out));
    case JournalKind::Tool:
      return entry.path + Arguments(entry);
    case JournalKind::Value:
      return fmt::format("{} \"{}\"", entry.path, OneLine(entry.text));
    case JournalKind::Sleep:
      return fmt::format("{:.3f}", std::chrono::duration<double>(entry.duration).count());
    case JournalKind::Shell:
    case JournalKind::Clock:
    case JournalKind::Console:
    case JournalKind::Event:
      break;
  }
  return OneLine(entry.text);
}

}  // namespace

std::string JournalEntry::Line() const {
  std::string line = fmt::format("{} {}", KindName(kind), What(*this));
  if (error != 0) {
    line += " -> " + ErrorName(error);
  } else if (result != 0) {
    line += fmt::format(" -> {}", result);
  }
  return line;
}

std::string JournalEntry::JsonLine() const {
  nlohmann::json json = {{"time", std::chrono::duration<double>(time).count()},
                         {"kind", KindName(kind)},
                         {"process", process},
                         {"line", OneLine(Line())}};
  if (!path.empty()) json["path"] = path;
  if (!text.empty()) json["text"] = text;
  if (!arguments.empty()) json["arguments"] = arguments;
  if (kind == JournalKind::Open) json["flags"] = OpenFlags(flags);
  if (kind == JournalKind::Request) json["request"] = request;
  if (kind == JournalKind::Sleep) json["seconds"] = std::chrono::duration<double>(duration).count();
  if (!bytes_in.empty()) json["in"] = posix::HexText(bytes_in);
  if (!bytes_out.empty()) json["out"] = posix::HexText(bytes_out);
  if (error != 0) json["error"] = ErrorName(error);
  if (result != 0) json["result"] = result;
  // JSON is UTF-8; the output of a program may be anything.
  return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace simulator
