// Tasks about production data and maintenance.
#include <fmt/format.h>

#include "station/commands/errors.h"
#include "station/tasks/tasks.h"
#include "station/tool/progress.h"

namespace station {

namespace {

Outcome ReadFactoryInfo(Session& session, const Values& values) {
  const Command& command = GetCommand(protocol::READ_FACTORY_INFO);
  Outcome outcome = RunCommand(session, command, {});
  const std::string file = values.Text("file");
  if (!outcome.failure.empty() || file.empty()) return outcome;
  const Bytes& answer = session.Exchanges().back().received;
  WriteFile(file, Bytes(answer.begin() + 4, answer.end()));
  outcome.remark = fmt::format("128 bytes written to {}", file);
  return outcome;
}

// The phone keeps its place in the image between commands and does not tell it. It starts again behind the
// image's end, so what is left of an earlier reading is read off first.
Outcome FetchModemImage(Session& session, const Values& values) {
  const Command& command = GetCommand(protocol::READ_MODEM_IMAGE);
  Outcome outcome;
  Progress progress(session.Options().progress);
  ChunkReading reading = ReadChunks(session, command, {},
                                    [&](std::size_t) { progress.Show("bringing the reader to the start"); });
  if (reading.failure.empty()) {
    reading = ReadChunks(session, command, {}, [&](std::size_t size) {
      progress.ShowBar("modem image", size, GSM_FFS_IMAGE_SIZE);
    });
  }
  outcome.failure = reading.failure;
  if (!outcome.failure.empty()) return outcome;
  WriteFile(values.Text("output"), reading.bytes);
  outcome.readings.push_back({"bytes", reading.bytes.size(), fmt::format("{} bytes", reading.bytes.size())});
  return outcome;
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

Outcome SetClock(Session& session, const Values& values) {
  const std::string time = values.IsSet("now") ? "now" : values.Text("time");
  if (time.empty()) throw UsageError("time: give a date and time, or --now");
  return RunCommand(session, GetCommand(protocol::SET_CLOCK), {{"time", time}});
}

}  // namespace

std::vector<Operation> RecordTasks() {
  return {
      {
          .words = "factory-info read",
          .help = "read the 128-byte factory information, to the screen or a file",
          .arguments = {Word("file", "file to write the 128 bytes to").OptionalPositional("")},
          .run = ReadFactoryInfo,
          .codes = {protocol::READ_FACTORY_INFO},
      },
      {
          .words = "modem-image fetch",
          .help = "fetch the modem's file-system image from flash into a file",
          .arguments = {Word("output", "file to write the image to").Named()},
          .run = FetchModemImage,
          .codes = {protocol::READ_MODEM_IMAGE},
      },
      {
          .words = "versions",
          .help = "read the phone's three version texts",
          .arguments = {},
          .run = ReadVersions,
          .codes = {protocol::READ_SYSTEM_VERSION, protocol::READ_CONFIG_VERSION,
                    protocol::READ_RESOURCE_VERSION},
      },
      {
          .words = "clock set",
          .help = "set the real-time clock",
          .arguments = {Moment("time", "date and time").OptionalPositional(""),
                        Flag("now", "take this computer's local time")},
          .run = SetClock,
          .codes = {protocol::SET_CLOCK},
      },
  };
}

}  // namespace station
