// Tasks about the link itself (raw bytes, and a phone that closes its end for a while) and maintenance.
#include <fmt/format.h>

#include <ctime>
#include <thread>

#include "station/commands/errors.h"
#include "station/link/interruption.h"
#include "station/tasks/operation.h"

namespace station {

namespace {

Outcome RunRaw(Session& session, const Values& values) {
  Bytes sent;
  AppendWord(sent, static_cast<std::uint32_t>(values.Number("code")));
  const Bytes request = BytesFromHex(values.Text("request"));
  sent.insert(sent.end(), request.begin(), request.end());
  const Bytes answer = session.RunRaw("raw code " + values.Text("code"), sent,
                                      static_cast<std::size_t>(values.Number("answer")), PROMPT);
  Outcome outcome;
  if (answer.empty()) outcome.remark = "sent; no answer asked for";
  if (!answer.empty()) {
    outcome.readings = DecodeAnswer(
        {{protocol::Form::Block, static_cast<std::uint32_t>(answer.size()), "answer", ""}}, answer);
  }
  return outcome;
}

std::vector<ReadingKind> PauseReadings(const Values& values) {
  std::vector<ReadingKind> kinds = AnswerKinds(GetCommand(protocol::PAUSE_LINK).answer);
  if (!values.IsSet("no-wait")) kinds.push_back({"answers-after", "s", ReadingKind::Value::Number});
  return kinds;
}

// The phone's end is open again when it answers a ping. A ping that comes before that is lost, so it is
// repeated.
Outcome PauseLink(Session& session, const Values& values) {
  constexpr std::chrono::milliseconds PING_TIME{1000};
  constexpr std::chrono::seconds GRACE{10};
  Outcome outcome = RunCommand(session, GetCommand(protocol::PAUSE_LINK), values.Given());
  if (!outcome.failure.empty() || values.IsSet("no-wait")) return outcome;
  const Clock::time_point start = Clock::now();
  // The phone takes the number as unsigned.
  const std::chrono::seconds pause{static_cast<std::uint32_t>(values.Number("seconds"))};
  SleepUnlessInterrupted(pause);
  do {
    if (session.TryRun(GetCommand(protocol::PING), {}, PING_TIME)) {
      const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
      outcome.readings.push_back(
          {"answers-after", seconds, fmt::format("the phone answers again after {:.1f} s", seconds), "s"});
      return outcome;
    }
  } while (Clock::now() < start + pause + GRACE);
  throw LinkFailure(fmt::format("the phone has not come back within {} s after the pause", GRACE.count()));
}

Outcome ReadVersions(Session& session, const Values&) {
  constexpr std::pair<const char*, std::uint32_t> TEXTS[] = {{"system", protocol::READ_SYSTEM_VERSION},
                                                             {"configuration", protocol::READ_CONFIG_VERSION},
                                                             {"resources", protocol::READ_RESOURCE_VERSION}};
  Outcome outcome;
  for (const auto& [name, code] : TEXTS) {
    const Outcome one = RunCommand(session, GetCommand(code), {});
    if (!one.failure.empty()) return one;
    outcome.readings.push_back({name, one.readings.front().value, one.readings.front().text});
  }
  return outcome;
}

void CheckOneTime(const Values& values) {
  const bool now = values.IsSet("now");
  const std::string time = values.Text("time");
  if (time.empty() && !now) throw UsageError("time: give a date and time, or --now");
  if (!time.empty() && now) throw UsageError(fmt::format("time: '{}' and --now exclude each other", time));
}

Outcome SetClock(Session& session, const Values& values) {
  const std::string time = values.IsSet("now") ? "now" : values.Text("time");
  return RunCommand(session, GetCommand(protocol::SET_CLOCK), {{"time", time}});
}

// The phone's local time as if it were UTC: only differences count.
std::time_t ClockSeconds(const Outcome& outcome) {
  std::tm time{};
  const std::string text = outcome.readings.front().value.get<std::string>();
  return strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &time) == nullptr ? 0 : timegm(&time);
}

std::vector<ReadingKind> ClockReadings(const Values&) {
  std::vector<ReadingKind> kinds = AnswerKinds(GetCommand(protocol::READ_CLOCK).answer);
  kinds.push_back({"advance", "s", ReadingKind::Value::Number});
  kinds.push_back({"ahead", "s", ReadingKind::Value::Number});
  return kinds;
}

Outcome CheckClock(Session& session, const Values&) {
  // The clock counts whole seconds, so it goes on by at least one.
  constexpr std::chrono::milliseconds WAIT{1100};
  const Command& command = GetCommand(protocol::READ_CLOCK);
  const Outcome first = RunCommand(session, command, {});
  if (!first.failure.empty()) return first;
  SleepUnlessInterrupted(WAIT);
  Outcome outcome = RunCommand(session, command, {});
  if (!outcome.failure.empty()) return outcome;
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  const auto advance = static_cast<std::int64_t>(ClockSeconds(outcome) - ClockSeconds(first));
  const auto ahead = static_cast<std::int64_t>(ClockSeconds(outcome) - timegm(&local));
  outcome.readings.push_back({"advance", advance, fmt::format("{} s", advance), "s"});
  outcome.readings.push_back({"ahead", ahead, fmt::format("{} s", ahead), "s"});
  return outcome;
}

}  // namespace

std::vector<Operation> ServiceTasks() {
  return {
      {
          .words = "raw",
          .help = "send any command code with any request and show the answer's bytes",
          .arguments = {Number("code", "command code, for instance 0x2B"),
                        Word("request", "request bytes in hexadecimal, for instance \"01000000 00000000\"")
                            .Optional("00000000"),
                        Number("answer", "how many answer bytes to wait for")
                            .Within({0, 65536, "bytes"})
                            .Optional("4")},
          .run = RunRaw,
          .readings = ReadingsLike({{"answer", "", ""}}),
          .codes = {},
      },
      {
          .words = "pause-link",
          .help = "let the phone close its end of the serial port for a while, and wait for its return",
          .arguments = {ArgumentFor(protocol::PauseRequest::FIELDS, "seconds"),
                        Flag("no-wait", "do not wait until the phone answers again")},
          .run = PauseLink,
          .readings = PauseReadings,
          .codes = {protocol::PAUSE_LINK},
          .has_status = true,
      },
      {
          .words = "versions",
          .help = "read the phone's three version texts",
          .arguments = {},
          .run = ReadVersions,
          .readings = ReadingsLike({{"system", "", ""}, {"configuration", "", ""}, {"resources", "", ""}}),
          .codes = {protocol::READ_SYSTEM_VERSION, protocol::READ_CONFIG_VERSION,
                    protocol::READ_RESOURCE_VERSION},
      },
      {
          .words = "clock set",
          .help = "set the real-time clock",
          .arguments = {ArgumentFor(protocol::ClockRequest::FIELDS, "time").OptionalPositional(""),
                        Flag("now", "take this computer's local time")},
          .run = SetClock,
          .readings = NoReadings,
          .codes = {protocol::SET_CLOCK},
          .has_status = true,
          .check = CheckOneTime,
      },
      {
          .words = "clock check",
          .help =
              "read the real-time clock twice: how it advances, and how far it is ahead of this computer's",
          .arguments = {},
          .run = CheckClock,
          .readings = ClockReadings,
          .codes = {protocol::READ_CLOCK},
          .has_status = true,
      },
  };
}

}  // namespace station
