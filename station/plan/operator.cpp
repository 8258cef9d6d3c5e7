#include "station/plan/operator.h"

#include <fmt/format.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>

namespace station {

bool Operator::Present() const {
  return always_yes_ || isatty(STDIN_FILENO) != 0;
}

Operator::Reply Operator::Ask(const std::string& question, std::chrono::milliseconds time_limit) {
  if (always_yes_) return Reply::Yes;
  const std::lock_guard<std::mutex> turn(mutex_);
  // What was typed before the question is no answer to it.
  tcflush(STDIN_FILENO, TCIFLUSH);
  fmt::print(stderr, "\r\033[K{} [Y/n] ", question);
  std::fflush(stderr);
  pollfd waiting{STDIN_FILENO, POLLIN, 0};
  if (poll(&waiting, 1, static_cast<int>(time_limit.count())) != 1) {
    fmt::print(stderr, "\n");
    return Reply::Silence;
  }
  std::array<char, 256> line{};
  const ssize_t count = read(STDIN_FILENO, line.data(), line.size());
  if (count <= 0) return Reply::Silence;
  return line[0] == 'n' || line[0] == 'N' ? Reply::No : Reply::Yes;
}

}  // namespace station
