// Tasks about the modem: AT commands, the relay to its data port, and its file-system image.
#include <fmt/format.h>

#include <algorithm>

#include "station/commands/errors.h"
#include "station/tasks/operation.h"
#include "station/tasks/pass_through.h"
#include "station/tasks/terminal.h"

namespace station {

namespace {

// The reply's lines without the line ends around them.
std::string ReplyLines(std::span<const std::uint8_t> reply) {
  std::string lines;
  std::string line;
  const auto finish = [&] {
    if (!line.empty()) lines += (lines.empty() ? "" : "\n") + line;
    line.clear();
  };
  for (const std::uint8_t byte : reply) {
    if (byte == 0) break;
    if (byte == '\r' || byte == '\n') {
      finish();
    } else {
      line += PrintableText({&byte, 1});
    }
  }
  finish();
  return lines;
}

// The phone forwards the text unchanged, and the modem acts on a line at its carriage return.
std::string AtText(const Values& values) {
  return values.Text("command") + (values.IsSet("raw") ? "" : "\r");
}

void CheckAtText(const Values& values) {
  if (AtText(values).size() <= AT_TEXT_SIZE) return;
  throw UsageError(fmt::format("command: '{}' is longer than {} characters ({} with --raw)",
                               values.Text("command"), AT_TEXT_SIZE - 1, AT_TEXT_SIZE));
}

Outcome SendAtCommand(Session& session, const Values& values) {
  Outcome outcome = RunCommand(session, GetCommand(protocol::EXCHANGE_AT),
                               {{"command", AtText(values)}, {"timeout", values.Text("timeout")}});
  const std::string lines = ReplyLines(std::span(outcome.answer).subspan(4));
  if (outcome.failure.empty()) outcome.readings = {{"reply", lines, lines}};
  if (!outcome.failure.empty() && !lines.empty()) outcome.failure += fmt::format(" (so far: {})", lines);
  return outcome;
}

Outcome PassThrough(Session& session, const Values& values) {
  Outcome outcome = RunCommand(session, GetCommand(protocol::PASS_THROUGH), {});
  if (!outcome.failure.empty()) return outcome;
  RelayToModem(session.GetLink(), values.IsSet("raw"), std::chrono::milliseconds(values.Number("linger")));
  outcome.silent = true;
  return outcome;
}

// The phone does not tell its place in the image, and starts again after the image's end. So the rest of an
// earlier reading is read first. A full chunk after the image's largest size is a failure: the phone has lost
// its place.
Outcome FetchModemImage(Session& session, const Values& values) {
  const auto largest = static_cast<std::size_t>(values.Number("largest")) * 1024;
  const Command& command = GetCommand(protocol::READ_MODEM_IMAGE);
  Outcome outcome;
  Progress progress(session.Options().progress);
  ChunkReading reading = ReadChunks(session, command, {}, largest,
                                    [&](std::size_t) { progress.Show("bringing the reader to the start"); });
  if (reading.failure.empty()) {
    reading = ReadChunks(session, command, {}, largest,
                         [&](std::size_t size) { progress.ShowBar("modem image", size, largest); });
  }
  outcome.failure = reading.failure;
  if (!outcome.failure.empty()) return outcome;
  WriteFile(values.Text("output"), reading.bytes);
  outcome.readings.push_back({"bytes", reading.bytes.size(), fmt::format("{} bytes", reading.bytes.size())});
  return outcome;
}

}  // namespace

std::vector<Operation> ModemTasks() {
  return {
      {
          .words = "at",
          .help = "send an AT command to the modem and show the first 32 bytes of its reply",
          .arguments = {Text("command", AT_TEXT_SIZE,
                             "the AT command, at most 31 characters (32 with --raw)"),
                        ArgumentFor(protocol::AtRequest::FIELDS, "timeout").Optional("3000"),
                        Flag("raw", "send the text as it is, without a carriage return after it")},
          .run = SendAtCommand,
          .readings = ReadingsLike({{"reply", "", ""}}),
          .codes = {protocol::EXCHANGE_AT},
          .has_status = true,
          .check = CheckAtText,
      },
      {
          .words = "modem pass-through",
          .help = "relay between this terminal and the modem's data port; Ctrl-] or the end of input leaves",
          .arguments = {Flag("raw",
                             "a plain pipe for file transfer programs: every byte goes through as it is"),
                        Number("linger", "how long the modem must be quiet after the end of input")
                            .Within({0, 3'600'000, "ms"})
                            .Optional("1000")},
          .run = PassThrough,
          .readings = NoReadings,
          .codes = {protocol::PASS_THROUGH},
          .in_plans = false,
      },
      {
          .words = "modem-image fetch",
          .help = "fetch the modem's file-system image from flash into a file",
          .arguments = {Word("output", "file to write the image to").Named(),
                        Number("largest", "largest size of the image; more is a failure")
                            .Within({1, 65536, "KiB"})
                            .Optional("80")},
          .run = FetchModemImage,
          .readings = ReadingsLike({{"bytes", 0, ""}}),
          .codes = {protocol::READ_MODEM_IMAGE},
      },
  };
}

}  // namespace station
