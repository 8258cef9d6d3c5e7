// Tasks on the production data that the phone can read back: what is written is read and compared. (The
// protocol has no command that reads the partition information's word or the stored Bluetooth address.)
#include <fmt/format.h>

#include <algorithm>

#include "protocol/selectors.h"
#include "station/commands/check_digit.h"
#include "station/commands/errors.h"
#include "station/tasks/operation.h"

namespace station {

namespace {

const std::string UNREADABLE = "it was written, but cannot be read back: ";

Outcome ReadFactoryInfo(Session& session, const Values& values) {
  const Command& command = GetCommand(protocol::READ_FACTORY_INFO);
  Outcome outcome = RunCommand(session, command, {});
  const std::string file = values.Text("file");
  if (!outcome.failure.empty() || file.empty()) return outcome;
  WriteFile(file, Bytes(outcome.answer.begin() + 4, outcome.answer.end()));
  outcome.remark = fmt::format("128 bytes written to {}", file);
  return outcome;
}

Outcome WriteFactoryInfo(Session& session, const Values& values) {
  const Command& command = GetCommand(protocol::WRITE_FACTORY_INFO);
  const Bytes written = EncodeRequest(command.request, values.Given());
  Outcome outcome = RunCommand(session, command, values.Given());
  if (!outcome.failure.empty()) return outcome;
  const Outcome read = RunCommand(session, GetCommand(protocol::READ_FACTORY_INFO), {});
  if (!read.failure.empty()) {
    outcome.failure = UNREADABLE + read.failure;
    return outcome;
  }
  const auto [wanted, got] = std::mismatch(written.begin(), written.end(), read.answer.begin() + 4);
  if (wanted == written.end()) return outcome;
  outcome.failure = fmt::format("it reads back differently: byte {} is 0x{:02X} instead of 0x{:02X}",
                                wanted - written.begin(), *got, *wanted);
  return outcome;
}

void CheckIdentity(const Values& values) {
  if (values.IsSet("force")) return;
  const std::string identity = values.Text("identity");
  if (identity == BLANK_IDENTITY) {
    throw UsageError(fmt::format("identity: {} is what a phone without an identity reads as", identity));
  }
  const std::string fault = CheckDigitFault(identity);
  if (!fault.empty()) throw UsageError(fmt::format("identity: {}: {} (--force takes it)", identity, fault));
}

struct IdentityReading {
  std::string identity;
  Outcome outcome;
};

IdentityReading ReadIdentity(Session& session) {
  IdentityReading read{.identity = "",
                       .outcome = RunCommand(session, GetCommand(protocol::READ_IDENTITY), {})};
  for (const Reading& reading : read.outcome.readings) {
    if (reading.name == "identity") read.identity = reading.text;
  }
  return read;
}

// The write goes out also for a phone that has this number already: the phone then writes nothing, but
// compares the number's complement too, which the read does not show.
Outcome WriteIdentity(Session& session, const Values& values) {
  const std::string wanted = values.Text("identity");
  const auto [before, reading] = ReadIdentity(session);
  if (!reading.failure.empty()) return reading;
  Outcome outcome;
  if (before != wanted && before != BLANK_IDENTITY) {
    outcome.failure =
        fmt::format("the phone carries the identity {} already, which cannot be changed", before);
    return outcome;
  }
  outcome = RunCommand(session, GetCommand(protocol::WRITE_IDENTITY), {{"identity", wanted}});
  if (!outcome.failure.empty()) return outcome;
  const auto [after, check] = ReadIdentity(session);
  if (!check.failure.empty()) outcome.failure = UNREADABLE + check.failure;
  if (check.failure.empty() && after != wanted)
    outcome.failure = fmt::format("it reads back as {} instead of {}", after, wanted);
  if (before == wanted) outcome.remark = "the phone has this identity already; nothing was written";
  return outcome;
}

}  // namespace

std::vector<Operation> ProductionTasks() {
  const auto from_request = [](std::uint32_t code, const char* name) {
    const std::vector<Argument>& request = GetCommand(code).request;
    return *std::ranges::find(request, name, &Argument::name);
  };
  return {
      {
          .words = "factory-info read",
          .help = "read the 128-byte factory information, to the screen or a file",
          .arguments = {Word("file", "file to write the 128 bytes to").OptionalPositional("")},
          .run = ReadFactoryInfo,
          .readings = ReadingsOf(protocol::READ_FACTORY_INFO),
          .codes = {protocol::READ_FACTORY_INFO},
          .has_status = true,
      },
      {
          .words = "factory-info write",
          .help = "write the 128-byte factory information from a file, and read it back",
          .arguments = {from_request(protocol::WRITE_FACTORY_INFO, "file")},
          .run = WriteFactoryInfo,
          .readings = ReadingsOf(protocol::WRITE_FACTORY_INFO),
          .codes = {protocol::WRITE_FACTORY_INFO, protocol::READ_FACTORY_INFO},
          .question = "Overwrite the phone's factory information?",
          .has_status = true,
      },
      {
          .words = "identity write",
          .help = "program the identity number, which can be done only once, and read it back",
          .arguments = {from_request(protocol::WRITE_IDENTITY, "identity"),
                        Flag("force", "take a number with a wrong check digit")},
          .run = WriteIdentity,
          .readings = ReadingsOf(protocol::WRITE_IDENTITY),
          .codes = {protocol::WRITE_IDENTITY, protocol::READ_IDENTITY},
          .question = "Program the identity? It can never be changed.",
          .has_status = true,
          .check = CheckIdentity,
      },
  };
}

}  // namespace station
