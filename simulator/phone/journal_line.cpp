// The two written forms of a journal entry.
#include <fcntl.h>
#include <fmt/format.h>
#include <string.h>

#include <array>
#include <nlohmann/json.hpp>

#include "simulator/phone/journal.h"

namespace simulator {
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

std::string Hex(const std::vector<uint8_t>& bytes) {
  std::string text;
  for (uint8_t byte : bytes) text += fmt::format("{:02X}", byte);
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
                         entry.bytes_in.empty() ? "" : " in ", Hex(entry.bytes_in),
                         entry.bytes_out.empty() ? "" : " out ", Hex(entry.bytes_out));
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

nlohmann::json JournalEntry::Json() const {
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
  if (!bytes_in.empty()) json["in"] = Hex(bytes_in);
  if (!bytes_out.empty()) json["out"] = Hex(bytes_out);
  if (error != 0) json["error"] = ErrorName(error);
  if (result != 0) json["result"] = result;
  return json;
}

}  // namespace simulator
