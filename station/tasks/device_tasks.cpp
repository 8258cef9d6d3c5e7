// Tasks about keys, touchscreen and radio.
#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <thread>

#include "station/commands/errors.h"
#include "station/commands/names.h"
#include "station/tasks/operation.h"
#include "station/tasks/terminal.h"

namespace station {

namespace {

Argument TimeLimit() {
  return Number("seconds", "how long to wait").Within({0, 86'400, "s"}).Optional("60");
}

Clock::time_point EndOfWait(const Values& values) {
  return Clock::now() + std::chrono::seconds(values.Number("seconds"));
}

// Polls until `done` returns true for a new key.
Outcome PollKeys(Session& session, Clock::time_point end,
                 const std::function<bool(std::uint32_t code)>& done) {
  // The phone waits half a second in each poll. If it does not, this pause keeps the polls apart.
  constexpr std::chrono::milliseconds PACE{20};
  std::optional<std::uint32_t> before;
  do {
    Outcome outcome = RunCommand(session, GetCommand(protocol::POLL_KEYPAD), {});
    if (!outcome.failure.empty()) return outcome;
    const std::uint32_t code = WordAt(outcome.answer, 0);
    // Without a new key the phone repeats the last one with the low byte 1. An unknown key can have this byte
    // too; it is new if the poll before returned another key.
    const bool repeated = !before || code == ((*before & 0xFF00) | REMEMBERED_KEY);
    before = code;
    const bool fresh = code != 0 && ((code & 0xFF) != REMEMBERED_KEY || !repeated);
    if (fresh && done(code)) return outcome;
    std::this_thread::sleep_for(PACE);
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
    const std::uint32_t crosses = WordAt(outcome.answer, 0);
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

constexpr protocol::Range BAND = protocol::RadioRequest::BAND;

struct Station {
  std::uint32_t frequency;  // in the tuner's steps
  std::uint32_t signal;

  double Units() const {
    return UnitsOf(BAND, frequency);
  }
};

std::string Chart(const std::vector<Station>& stations) {
  constexpr std::uint32_t WIDTH = 50;
  constexpr std::uint32_t STRONGEST = 65535;
  std::string chart;
  for (const Station& station : stations) {
    const std::uint32_t bar = std::min(station.signal, STRONGEST) * WIDTH / STRONGEST;
    chart += fmt::format("\n{:>8} |{:#<{}}{:<{}}| {:>5}", station.Units(), "", bar, "", WIDTH - bar,
                         station.signal);
  }
  return chart;
}

void CheckScan(const Values& values) {
  constexpr std::int64_t MOST_STEPS = 10'000;
  const std::int64_t from = values.Number("from");
  const std::int64_t to = values.Number("to");
  const std::int64_t step = values.Number("step");
  if (from < 0 || to < from || step < 1 || (to - from) / step >= MOST_STEPS) {
    throw UsageError(
        "a scan goes from a frequency up to a higher one, in at most 10000 steps, all in one unit");
  }
}

Outcome ScanRadio(Session& session, const Values& values) {
  const std::int64_t from = values.Number("from");
  const std::int64_t to = values.Number("to");
  const std::int64_t step = values.Number("step");
  Progress progress(session.Options().progress);
  std::vector<Station> stations;
  for (std::int64_t frequency = from; frequency <= to; frequency += step) {
    Outcome outcome =
        RunCommand(session, GetCommand(protocol::CONTROL_RADIO),
                   {{"mode", RADIO_MEASURE}, {"frequency", frequency}, {"volume", values.Number("volume")}});
    if (!outcome.failure.empty()) {
      outcome.failure += fmt::format(" (at {} {})", UnitsOf(BAND, frequency), BAND.unit);
      return outcome;
    }
    stations.push_back({WordAt(outcome.answer, 4), WordAt(outcome.answer, 8)});
    progress.ShowBar("scan", static_cast<std::size_t>(frequency - from), static_cast<std::size_t>(to - from));
  }
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const Station& station : stations) {
    list.push_back({{"frequency", station.Units()}, {"signal", station.signal}});
  }
  const Station& best = *std::ranges::max_element(stations, {}, &Station::signal);
  Outcome outcome;
  outcome.readings = {{"scan", std::move(list), Chart(stations)},
                      {"strongest", best.Units(), fmt::format("{}", best.Units()), BAND.unit},
                      {"signal", best.signal, std::to_string(best.signal)}};
  return outcome;
}

// One of the scan's frequencies, under its own name.
Argument ScanArgument(const std::string& name, const std::string& help, const std::string& fallback) {
  Argument argument = ArgumentFor(protocol::RadioRequest::FIELDS, "frequency");
  argument.name = name;
  argument.help = help;
  return argument.Optional(fallback);
}

std::vector<ReadingKind> ScanReadings(const Values&) {
  using Value = ReadingKind::Value;
  return {{"scan", "", Value::List}, {"strongest", BAND.unit, Value::Number}, {"signal", "", Value::Number}};
}

}  // namespace

std::vector<Operation> DeviceTasks() {
  return {
      {
          .words = "key wait",
          .help = "wait for a key press and name the key",
          .arguments = {TimeLimit()},
          .run = WaitForKey,
          .readings = ReadingsOf(protocol::POLL_KEYPAD),
          .codes = {protocol::POLL_KEYPAD},
          .has_status = true,
      },
      {
          .words = "key watch",
          .help = "wait until every key has been pressed, and show which are left",
          .arguments = {TimeLimit()},
          .run = WatchKeys,
          .readings = ReadingsLike({{"keys", 0, ""}}),
          .codes = {protocol::POLL_KEYPAD},
          .has_status = true,
      },
      {
          .words = "touch watch",
          .help = "wait until every cross has been touched, and show which are left (after \"touch start\")",
          .arguments = {TimeLimit()},
          .run = WatchTouch,
          .readings = ReadingsOf(protocol::CONTROL_TOUCH_TEST),
          .codes = {protocol::CONTROL_TOUCH_TEST},
          .has_status = true,
      },
      {
          .words = "radio scan",
          .help = "measure the signal over a band and draw it as a chart",
          .arguments = {ScanArgument("from", "lowest frequency", "87.5"),
                        ScanArgument("to", "highest frequency", "108"),
                        ScanArgument("step", "distance between two measurements", "0.5")
                            .Within({1, 10 * BAND.steps, BAND.unit, BAND.steps, BAND.other}),
                        ArgumentFor(protocol::RadioRequest::FIELDS, "volume").Optional("0")},
          .run = ScanRadio,
          .readings = ScanReadings,
          .codes = {protocol::CONTROL_RADIO},
          .check = CheckScan,
      },
  };
}

}  // namespace station
