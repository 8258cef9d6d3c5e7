#include "station/tasks/terminal.h"

#include <fmt/format.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "station/commands/clean_text.h"
#include "station/link/interruption.h"

namespace station {

namespace {

// Returns to the line's start and erases the line.
constexpr const char* FRESH_LINE = "\r\033[K";

}  // namespace

Progress::~Progress() {
  if (dirty_) fmt::print(stderr, "{}", FRESH_LINE);
}

void Progress::Show(const std::string& line) {
  if (!shown_ || line == last_) return;
  fmt::print(stderr, "{}{}", FRESH_LINE, CleanText(line));
  std::fflush(stderr);
  last_ = line;
  dirty_ = true;
}

void Progress::ShowBar(const std::string& label, std::size_t done, std::size_t total) {
  constexpr std::size_t WIDTH = 30;
  const std::size_t percent = total == 0 ? 100 : std::min<std::size_t>(100, done * 100 / total);
  const std::size_t filled = percent * WIDTH / 100;
  Show(fmt::format("[{:#<{}}{:.<{}}] {:3} %  {}", "", filled, "", WIDTH - filled, percent, label));
}

bool Operator::Present() const {
  return always_yes_ || isatty(STDIN_FILENO) != 0;
}

Operator::Reply Operator::Ask(const std::string& question, std::chrono::milliseconds time_limit) {
  if (always_yes_) return Reply::Yes;
  const std::lock_guard<std::mutex> turn(mutex_);
  CheckInterruption();
  // Input from before the question does not answer it.
  tcflush(STDIN_FILENO, TCIFLUSH);
  fmt::print(stderr, "{}{} [Y/n] ", FRESH_LINE, CleanText(question));
  std::fflush(stderr);
  std::array<pollfd, 2> waiting = {{{STDIN_FILENO, POLLIN, 0}, {InterruptionDescriptor(), POLLIN, 0}}};
  poll(waiting.data(), waiting.size(), static_cast<int>(time_limit.count()));
  if (waiting[0].revents == 0) {
    fmt::print(stderr, "\n");
    CheckInterruption();
    return Reply::Silence;
  }
  std::array<char, 256> line{};
  const ssize_t count = read(STDIN_FILENO, line.data(), line.size());
  if (count <= 0) return Reply::Silence;
  return line[0] == 'n' || line[0] == 'N' ? Reply::No : Reply::Yes;
}

}  // namespace station
