// Tasks that wait for a tester's finger: keys and the crosses on the touchscreen.
#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <thread>

#include "station/commands/names.h"
#include "station/tasks/tasks.h"
#include "station/tool/progress.h"

namespace station {

namespace {

Argument TimeLimit() {
  return Number("seconds", "how long to wait, in seconds").Optional("60");
}

Clock::time_point EndOfWait(const Values& values) {
  return Clock::now() + std::chrono::seconds(values.Number("seconds"));
}

// Polls until a key comes that `done` wants to be the last. The phone waits half a second in each poll.
Outcome PollKeys(Session& session, Clock::time_point end,
                 const std::function<bool(std::uint32_t code)>& done) {
  std::optional<std::uint32_t> before;
  do {
    Outcome outcome = RunCommand(session, GetCommand(protocol::POLL_KEYPAD), {});
    if (!outcome.failure.empty()) return outcome;
    const std::uint32_t code = WordAt(session.Exchanges().back().received, 0);
    // A quiet poll repeats the last key with its low byte 1. An unknown key can have that byte of its own; it
    // is seen as new when it is not the key of the poll before.
    const bool repeated = !before || code == ((*before & 0xFF00) | REMEMBERED_KEY);
    before = code;
    if (code == 0 || ((code & 0xFF) == REMEMBERED_KEY && repeated)) continue;
    if (done(code)) return outcome;
  } while (Clock::now() < end);
  Outcome none;
  none.failure = "no key came in time";
  return none;
}

Outcome WaitForKey(Session& session, const Values& values) {
  Progress progress(session.Options().progress);
  progress.Show("press a key on the phone");
  return PollKeys(session, EndOfWait(values), [](std::uint32_t) { return true; });
}

std::string KeyNames(const std::vector<KeypadKey>& keys) {
  std::string names;
  for (const KeypadKey& key : keys) names += (names.empty() ? "" : ", ") + std::string(key.name);
  return names;
}

Outcome WatchKeys(Session& session, const Values& values) {
  std::vector<KeypadKey> left(std::begin(KEYPAD_KEYS), std::end(KEYPAD_KEYS));
  Progress progress(session.Options().progress);
  const auto show = [&] { progress.Show("press each key; left: " + KeyNames(left)); };
  show();
  Outcome outcome = PollKeys(session, EndOfWait(values), [&](std::uint32_t code) {
    std::erase_if(left, [code](const KeypadKey& key) { return key.code == code >> 8; });
    show();
    return left.empty();
  });
  if (!outcome.failure.empty() && !left.empty()) outcome.failure += "; keys not pressed: " + KeyNames(left);
  if (outcome.failure.empty())
    outcome.readings = {{"keys", std::size(KEYPAD_KEYS), fmt::format("all {}", std::size(KEYPAD_KEYS))}};
  return outcome;
}

Outcome WatchTouch(Session& session, const Values& values) {
  constexpr std::chrono::milliseconds PACE{200};
  const Clock::time_point end = EndOfWait(values);
  Progress progress(session.Options().progress);
  for (;;) {
    Outcome outcome =
        RunCommand(session, GetCommand(protocol::CONTROL_TOUCH_TEST), {{"mode", TOUCH_READ_RESULT}});
    if (!outcome.failure.empty()) return outcome;
    const std::uint32_t crosses = WordAt(session.Exchanges().back().received, 0);
    if (crosses == 0) return outcome;
    const std::string left = fmt::format("{}", fmt::join(CrossNames(crosses), ", "));
    progress.Show("touch the crosses; left: " + left);
    if (Clock::now() >= end) {
      outcome.failure = "crosses not touched in time: " + left;
      return outcome;
    }
    std::this_thread::sleep_for(PACE);
  }
}

}  // namespace

std::vector<Operation> KeyTasks() {
  return {
      {
          .words = "key wait",
          .help = "wait for a key press and name the key",
          .arguments = {TimeLimit()},
          .run = WaitForKey,
          .codes = {protocol::POLL_KEYPAD},
      },
      {
          .words = "key watch",
          .help = "wait until every key has been pressed, showing which are left",
          .arguments = {TimeLimit()},
          .run = WatchKeys,
          .codes = {protocol::POLL_KEYPAD},
      },
      {
          .words = "touch watch",
          .help = "wait until every cross has been touched, showing which are left (after \"touch start\")",
          .arguments = {TimeLimit()},
          .run = WatchTouch,
          .codes = {protocol::CONTROL_TOUCH_TEST},
      },
  };
}

}  // namespace station
