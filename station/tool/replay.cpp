#include "station/tool/replay.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>
#include <thread>
#include <vector>

#include "station/commands/bytes.h"
#include "station/tasks/operation.h"

namespace station {

namespace {

struct Event {
  std::size_t line;
  double time = 0;  // seconds since the recording began
  bool sent = false;
  Bytes bytes = {};
  std::string remark = {};  // the last one before it; it names the command
};

std::vector<Event> ReadTrace(const std::string& path) {
  constexpr std::size_t LARGEST = 256u << 20;
  std::istringstream file(ReadFile(path, LARGEST));
  std::string line;
  if (!std::getline(file, line) || line != "# phonetest trace 1") {
    throw UsageError(fmt::format("{} is not a trace of phonetest", path));
  }
  std::vector<Event> events;
  std::string remark;
  for (std::size_t number = 2; std::getline(file, line); ++number) {
    if (line.empty() || line.starts_with('#')) continue;
    std::istringstream words(line);
    Event event{.line = number};
    char direction = 0;
    std::string rest;
    words >> event.time >> direction >> std::ws;
    std::getline(words, rest);
    if (direction == '#') {
      remark = rest;
      continue;
    }
    if (direction != '>' && direction != '<')
      throw UsageError(fmt::format("{}, line {}: this is not a line of a trace", path, number));
    event.sent = direction == '>';
    event.bytes = BytesFromHex(rest);
    event.remark = remark;
    // The pieces in which an answer arrived are joined: they may be different next time.
    if (!event.sent && !events.empty() && !events.back().sent) {
      events.back().bytes.insert(events.back().bytes.end(), event.bytes.begin(), event.bytes.end());
    } else {
      events.push_back(std::move(event));
    }
  }
  return events;
}

std::string Compare(const Event& event, std::span<const std::uint8_t> came) {
  const auto [recorded, now] = std::ranges::mismatch(event.bytes, came);
  if (recorded == event.bytes.end()) return "";
  const std::ptrdiff_t at = recorded - event.bytes.begin();
  const std::string what = now == came.end() ? "nothing more came" : fmt::format("{:02X} came", *now);
  return fmt::format("line {}, {}: answer byte {} was {:02X}, now {}\n  recorded: {}\n  now:      {}",
                     event.line, event.remark, at, *recorded, what, HexText(event.bytes), HexText(came));
}

class Player {
 public:
  Player(Link& link, const ReplayOrder& order) : link_(link), order_(order) {}

  ReplayResult Play(const std::vector<Event>& events) {
    double before = events.empty() ? 0 : events.front().time;
    for (const Event& event : events) {
      const std::chrono::duration<double> recorded_pause(event.time - before);
      before = event.time;
      const auto pause = std::chrono::duration_cast<std::chrono::milliseconds>(recorded_pause);
      if (event.sent) {
        SendAgain(event, pause);
      } else {
        ReceiveAgain(event, pause);
      }
      if (!result_.difference.empty()) break;
    }
    return result_;
  }

 private:
  void SendAgain(const Event& event, std::chrono::milliseconds pause) {
    constexpr std::chrono::seconds SEND_TIME{5};
    std::this_thread::sleep_for(std::min(pause, order_.longest_pause));
    Bytes extra(4096);
    extra.resize(link_.ReceiveWaiting(extra));
    if (!extra.empty()) {
      result_.difference = fmt::format("before line {}, {}: more came than was recorded: {}", event.line,
                                       event.remark, HexText(extra));
      return;
    }
    link_.Remark(event.remark);
    link_.Send(event.bytes, Clock::now() + SEND_TIME);
    result_.sent += event.bytes.size();
  }

  void ReceiveAgain(const Event& event, std::chrono::milliseconds pause) {
    constexpr std::chrono::seconds GRACE{5};
    Bytes came(event.bytes.size());
    came.resize(link_.Receive(came, Clock::now() + order_.answer_time.value_or(pause + GRACE)));
    result_.received += came.size();
    result_.difference = Compare(event, came);
  }

  Link& link_;
  const ReplayOrder& order_;
  ReplayResult result_;
};

}  // namespace

ReplayResult Replay(Link& link, const ReplayOrder& order) {
  const std::vector<Event> events = ReadTrace(order.trace_file);
  link.DiscardInput(Clock::now() + std::chrono::seconds(5));
  return Player(link, order).Play(events);
}

}  // namespace station
