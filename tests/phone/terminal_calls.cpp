#include "tests/phone/terminal_calls.h"

#include <asm/ioctls.h>
#include <fcntl.h>

namespace {

bool IsControl(const TracedCall& call) {
  return call.number == (call.narrow ? 54 : 16);  // ioctl
}

bool IsFileControl(const TracedCall& call) {
  return call.narrow ? call.number == 55 || call.number == 221 : call.number == 72;  // fcntl, fcntl64
}

}  // namespace

TerminalCalls::TerminalCalls(pid_t server)
    : tracer_(server, [this](const TracedCall& call) { return Note(call); }) {}

CallFate TerminalCalls::Note(const TracedCall& call) {
  std::string text;
  if (IsFileControl(call) && call.arguments[1] == F_SETFL) {
    text = "flags " + std::to_string(call.arguments[2]);
  } else if (IsControl(call) && call.arguments[1] == TCFLSH) {
    text = "flush " + std::to_string(call.arguments[2]);
  } else if (IsControl(call) && call.arguments[1] == TCSETS) {
    text = "set";
  } else {
    return {};
  }
  const std::lock_guard lock(mutex_);
  entries_.push_back({call.DescriptorPath(), std::move(text)});
  return {};
}

std::vector<std::string> TerminalCalls::Of(const std::string& terminal) const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> texts;
  for (const Entry& entry : entries_) {
    if (entry.terminal == terminal) texts.push_back(entry.text);
  }
  return texts;
}
