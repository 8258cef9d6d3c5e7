// Tasks about the modem: AT commands and the relay to its data port.
#include <fmt/format.h>

#include <algorithm>

#include "station/tasks/tasks.h"
#include "station/tool/pass_through.h"

namespace station {

namespace {

// The reply's lines, without the line endings that a modem frames them with.
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

Outcome SendAtCommand(Session& session, const Values& values) {
  // The phone sends the text on as it is, and a modem takes a line at its carriage return.
  const std::string ending = values.IsSet("raw") ? "" : "\r";
  Outcome outcome =
      RunCommand(session, GetCommand(protocol::EXCHANGE_AT),
                 {{"command", values.Text("command") + ending}, {"timeout", values.Text("timeout")}});
  const Bytes& answer = session.Exchanges().back().received;
  const std::string lines = ReplyLines(std::span(answer).subspan(4));
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

}  // namespace

std::vector<Operation> ModemTasks() {
  return {
      {
          .words = "at",
          .help = "send an AT command to the modem and show the first 32 bytes of its reply",
          .arguments = {Text("command", AT_TEXT_SIZE,
                             "the AT command, at most 31 characters (32 with --raw)"),
                        Number("timeout", "how long the modem may take, in milliseconds").Optional("3000"),
                        Flag("raw", "send the text as it is, without a carriage return behind it")},
          .run = SendAtCommand,
          .codes = {protocol::EXCHANGE_AT},
      },
      {
          .words = "modem pass-through",
          .help = "relay between this terminal and the modem's data port; Ctrl-] or the end of input leaves",
          .arguments = {Flag("raw",
                             "a plain pipe for file transfer programs: every byte goes through as it is"),
                        Number("linger",
                               "how long the modem must be quiet after the end of input, in milliseconds")
                            .Optional("1000")},
          .run = PassThrough,
          .codes = {protocol::PASS_THROUGH},
          .in_plans = false,
      },
  };
}

}  // namespace station
