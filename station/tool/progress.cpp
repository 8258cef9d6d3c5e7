#include "station/tool/progress.h"

#include <fmt/format.h>

#include <algorithm>

namespace station {

namespace {

// Back to the line's start, and what stood there is erased.
constexpr const char* FRESH_LINE = "\r\033[K";

}  // namespace

Progress::~Progress() {
  if (dirty_) fmt::print(stderr, "{}", FRESH_LINE);
}

void Progress::Show(const std::string& line) {
  if (!shown_ || line == last_) return;
  fmt::print(stderr, "{}{}", FRESH_LINE, line);
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

}  // namespace station
