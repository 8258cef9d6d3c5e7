#include "simulator/models/touch_panel.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "simulator/models/framebuffer.h"
#include "simulator/phone/command_words.h"

namespace simulator {

std::vector<std::string> TouchPanel::Paths() const {
  return {"/dev/touchscreen/tsc2046"};
}

OpenAnswer TouchPanel::Open(const OpenCall& call) {
  if (call.Writes()) return OpenAnswer::Refusal(EACCES);
  // A socket keeps records apart, so that one read gives one of them.
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return OpenAnswer::Refusal(errno);
  fcntl(ends[1], F_SETFL, call.flags & O_NONBLOCK);
  readers_.emplace_back(ends[0]);
  return OpenAnswer::PlainDescriptor(posix::FileDescriptor(ends[1]));
}

size_t TouchPanel::Deliver(const TouchReading& reading) {
  const size_t size = std::min(sizeof reading, state.reading_bytes);
  std::erase_if(readers_, [&](const posix::FileDescriptor& reader) {
    return send(reader.Get(), &reading, size, MSG_NOSIGNAL | MSG_DONTWAIT) < 0 && errno != EAGAIN;
  });
  return readers_.size();
}

// The panel's X axis runs along the screen's rows and its Y axis along the columns. Its ends lie at 257 and
// 3812 for the rows, 260 and 3845 for the columns, and the converter counts both backwards from 4096.
TouchReading TouchPanel::ReadingAt(int32_t screen_x, int32_t screen_y) {
  constexpr int32_t FULL_SCALE = 4096;
  const int32_t panel_x = 257 + screen_y * 3555 / static_cast<int32_t>(Framebuffer::HEIGHT - 1);
  const int32_t panel_y = 260 + screen_x * 3585 / static_cast<int32_t>(Framebuffer::WIDTH - 1);
  return {static_cast<uint32_t>(FULL_SCALE - panel_x), static_cast<uint32_t>(FULL_SCALE - panel_y), 1};
}

std::vector<ModelCommand> TouchPanel::Commands() {
  return {{"touch", "X Y", "touches the screen for a moment at a pixel (from the top left corner)",
           [this](const std::vector<std::string>& words) { return Touch(words); }}};
}

std::string TouchPanel::Touch(const std::vector<std::string>& words) {
  if (words.size() != 2) throw std::invalid_argument("touch takes a pixel's column and row.");
  const int64_t x = NumberWord(words[0]);
  const int64_t y = NumberWord(words[1]);
  if (x < 0 || x >= Framebuffer::WIDTH || y < 0 || y >= Framebuffer::HEIGHT) {
    throw std::invalid_argument(
        fmt::format("The screen has {} columns and {} rows.", Framebuffer::WIDTH, Framebuffer::HEIGHT));
  }
  TouchReading reading = ReadingAt(static_cast<int32_t>(x), static_cast<int32_t>(y));
  const size_t readers = Deliver(reading);
  reading.pen = 0;
  Deliver(reading);
  return readers == 0 ? "No program reads the touch panel.\n"
                      : fmt::format("reading {} {}\n", reading.x, reading.y);
}

}  // namespace simulator
