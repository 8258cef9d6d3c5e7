#include "tests/phone/host_line.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;

bool IsReadable(int port, Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  pollfd polled = {port, POLLIN, 0};
  return poll(&polled, 1, static_cast<int>(std::max<int64_t>(left.count(), 0))) > 0;
}

}  // namespace

Bytes Words(std::initializer_list<uint32_t> words) {
  Bytes bytes;
  for (uint32_t word : words) {
    for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<uint8_t>(word >> shift));
  }
  return bytes;
}

Bytes FromText(std::string_view text) {
  return {text.begin(), text.end()};
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

uint32_t WordAt(const Bytes& bytes, size_t offset) {
  uint32_t word = 0;
  for (size_t index = 0; index < 4; ++index) word |= uint32_t{bytes.at(offset + index)} << (8 * index);
  return word;
}

int32_t StatusOf(const Bytes& answer) {
  return static_cast<int32_t>(WordAt(answer, 0));
}

HostLine::HostLine(const std::string& port)
    : port_(open(port.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
  termios settings = {};
  if (!port_.IsOpen() || tcgetattr(port_.Get(), &settings) != 0)
    throw std::runtime_error("no host port " + port);
  cfmakeraw(&settings);
  tcsetattr(port_.Get(), TCSANOW, &settings);
}

void HostLine::Send(const Bytes& bytes) {
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t size = write(port_.Get(), bytes.data() + sent, bytes.size() - sent);
    if (size > 0) sent += static_cast<size_t>(size);
    if (size < 0 && errno != EAGAIN && errno != EINTR)
      throw std::runtime_error("the host port takes no bytes");
    pollfd polled = {port_.Get(), POLLOUT, 0};
    if (size < 0) poll(&polled, 1, 1000);
  }
}

Bytes HostLine::Receive(size_t count, std::chrono::milliseconds time_out,
                        const std::function<bool()>& sender_lives) {
  const Clock::time_point deadline = Clock::now() + time_out;
  Bytes bytes(count);
  size_t received = 0;
  while (received < count) {
    const bool lives = sender_lives();  // asked first: what it sent before its end still counts
    if (IsReadable(port_.Get(), std::min(deadline, Clock::now() + 100ms))) {
      const ssize_t size = read(port_.Get(), bytes.data() + received, count - received);
      if (size > 0) received += static_cast<size_t>(size);
    } else if (!lives || Clock::now() >= deadline) {
      break;
    }
  }
  bytes.resize(received);
  return bytes;
}

bool HostLine::IsQuiet(std::chrono::milliseconds time) {
  return !IsReadable(port_.Get(), Clock::now() + time);
}
