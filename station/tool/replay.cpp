#include "station/tool/replay.h"

#include <fmt/format.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "station/commands/bytes.h"
#include "station/tool/recorded_trace.h"

namespace station {

namespace {

std::string Compare(const RecordedPiece& event, std::span<const std::uint8_t> came) {
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

  ReplayResult Play(const std::vector<RecordedPiece>& events) {
    auto before = events.empty() ? std::chrono::milliseconds(0) : events.front().time;
    for (const RecordedPiece& event : events) {
      const std::chrono::milliseconds pause = event.time - before;
      before = event.time;
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
  void SendAgain(const RecordedPiece& event, std::chrono::milliseconds pause) {
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

  void ReceiveAgain(const RecordedPiece& event, std::chrono::milliseconds pause) {
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
  const std::vector<RecordedPiece> events = ReadTrace(order.trace_file);
  link.DiscardInput(Clock::now() + std::chrono::seconds(5));
  return Player(link, order).Play(events);
}

}  // namespace station
