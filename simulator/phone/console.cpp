#include "simulator/phone/console.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>

#include "posix/whole_output.h"

namespace simulator {
namespace {

constexpr size_t KEPT_TEXT = 4 << 20;
constexpr size_t LONGEST_LINE = 1 << 16;  // a longer one is more than one entry

}  // namespace

posix::FileDescriptor Console::NewOutput(const std::string& source) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  auto reading = std::make_shared<posix::FileDescriptor>(ends[0]);
  auto line = std::make_shared<std::string>();
  auto watch = std::make_shared<PollLoop::Id>();
  *watch = loop_.Watch(
      ends[0], POLLIN,
      [this, reading, source, line, watch](short) {
        // What is there was written after any value that its writer had set before.
        int ready = 0;
        ioctl(reading->Get(), FIONREAD, &ready);
        loop_.ServeThrough(PollLoop::Turn::Value);
        char bytes[1 << 14];
        const size_t wanted = ready > 0 ? static_cast<size_t>(ready) : 1;  // nothing: perhaps the end
        const ssize_t size = read(reading->Get(), bytes, std::min(wanted, sizeof bytes));
        if (size > 0) return Take(source, {bytes, static_cast<size_t>(size)}, *line);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (!line->empty()) Take(source, "\n", *line);
        loop_.Unwatch(*watch);
      },
      PollLoop::Turn::Output);
  return posix::FileDescriptor(ends[1]);
}

std::string Console::Text() const {
  const std::lock_guard lock(mutex_);
  return text_;
}

void Console::Take(const std::string& source, std::string_view bytes, std::string& line) {
  if (source == "stdout") {
    const std::lock_guard lock(mutex_);
    text_ += bytes;
    if (text_.size() > 2 * KEPT_TEXT) text_.erase(0, text_.size() - KEPT_TEXT);
  }
  if (echo_) posix::WriteToOutput(bytes);
  for (const char character : bytes) {
    if (character != '\n' && line.size() < LONGEST_LINE) {
      line += character;
      continue;
    }
    journal_.Add({.kind = JournalKind::Console, .path = source, .text = line});
    line.clear();
    if (character != '\n') line += character;
  }
}

}  // namespace simulator
