#include "station/tool/replay.h"

#include <fmt/format.h>

#include <algorithm>
#include <thread>
#include <utility>
#include <vector>

#include "station/commands/bytes.h"
#include "station/tool/recorded_trace.h"

namespace station {

namespace {

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
    if (result_.difference.empty() && !events.empty()) CheckEnd(events.back());
    return result_;
  }

 private:
  void SendAgain(const RecordedPiece& event, std::chrono::milliseconds pause) {
    constexpr std::chrono::seconds SEND_TIME{5};
    std::this_thread::sleep_for(std::min(pause, order_.longest_pause));
    Bytes extra(4096);
    extra.resize(link_.ReceiveWaiting(extra));
    if (!extra.empty()) return Extra(event.line, extra);
    link_.Remark(event.remark);
    link_.Send(event.bytes, Clock::now() + SEND_TIME);
    result_.sent += event.bytes.size();
    sent_ = event;
    answer_.clear();
  }

  void ReceiveAgain(const RecordedPiece& event, std::chrono::milliseconds pause) {
    constexpr std::chrono::seconds GRACE{5};
    Bytes came(event.bytes.size());
    came.resize(link_.Receive(came, Clock::now() + order_.answer_time.value_or(pause + GRACE)));
    result_.received += came.size();
    answer_ = event.bytes;
    order_.ignored.Equate(sent_.bytes, event.bytes, came);
    if (came == event.bytes) return;
    Tell(event.line, event.remark, "", ExplainDifference(sent_.bytes, event.bytes, came));
  }

  // What comes after the last command's answer has nothing that it could be before.
  void CheckEnd(const RecordedPiece& last) {
    constexpr std::chrono::milliseconds LATE{100};
    Bytes extra(4096);
    extra.resize(link_.Receive(extra, Clock::now() + LATE));
    if (!extra.empty()) Extra(last.line, extra);
  }

  void Extra(std::size_t line, const Bytes& extra) {
    result_.received += extra.size();
    Tell(line, sent_.remark, "after ", ExplainExtra(sent_.bytes, answer_, extra));
  }

  void Tell(std::size_t line, const std::string& remark, const char* after, AnswerDifference explanation) {
    result_.line = line;
    result_.difference = fmt::format("line {}, {}{}: {}", line, after, remark, explanation.text);
    result_.explanation = std::move(explanation);
  }

  Link& link_;
  const ReplayOrder& order_;
  ReplayResult result_;
  RecordedPiece sent_ = {};  // the latest command
  Bytes answer_ = {};        // what was recorded after it
};

}  // namespace

ReplayResult Replay(Link& link, const ReplayOrder& order) {
  const std::vector<RecordedPiece> events = ReadTrace(order.trace_file);
  link.DiscardInput(Clock::now() + std::chrono::seconds(5));
  return Player(link, order).Play(events);
}

}  // namespace station
