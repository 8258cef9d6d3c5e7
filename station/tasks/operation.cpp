#include "station/tasks/operation.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "posix/nearest_words.h"
#include "posix/whole_output.h"
#include "station/commands/errors.h"

namespace station {

namespace {

Operation VerbOperation(const Command& command, const Verb& verb) {
  Operation operation{.words = verb.words,
                      .help = verb.help,
                      .arguments = {},
                      .run = {},
                      .readings = verb.status_only ? NoReadings : ReadingsOf(command.code),
                      .codes = {command.code},
                      .question = verb.question,
                      .has_status = !command.answer.empty()};
  for (const Argument& argument : command.request) {
    const bool asked = argument.kind != Argument::Kind::Ignored && !verb.settled.contains(argument.name);
    if (!asked) continue;
    operation.arguments.push_back(argument);
    if (argument.name != verb.leads) continue;
    operation.arguments.back().positional = true;
    operation.arguments.back().fallback.reset();
  }
  operation.run = [&command, &verb](Session& session, const Values& values) {
    ArgumentValues arguments = verb.settled;
    arguments.insert(values.Given().begin(), values.Given().end());
    Outcome outcome = RunCommand(session, command, arguments);
    if (verb.status_only) outcome.readings.clear();
    return outcome;
  };
  return operation;
}

std::vector<Operation> AllOperations() {
  std::vector<Operation> all;
  for (const Command& command : CommandTable()) {
    for (const Verb& verb : command.verbs) all.push_back(VerbOperation(command, verb));
  }
  for (const auto& tasks : {ServiceTasks(), ProductionTasks(), ModemTasks(), DeviceTasks(), CameraTasks()}) {
    all.insert(all.end(), tasks.begin(), tasks.end());
  }
  for (Operation& operation : all) {
    if (std::ranges::find(operation.arguments, true, &Argument::may_insist) == operation.arguments.end())
      continue;
    operation.arguments.push_back(
        Flag(UNCHECKED, "send values outside the stated ranges too, for the phone's drivers to judge"));
  }
  return all;
}

}  // namespace

const Argument& Values::Find(const std::string& name) const {
  const auto found = std::ranges::find(arguments_, name, &Argument::name);
  if (found == arguments_.end()) throw std::logic_error("no argument " + name);
  return *found;
}

std::string Values::Text(const std::string& name) const {
  return TextOf(ValueOf(arguments_, Find(name), given_));
}

std::int64_t Values::Number(const std::string& name) const {
  const Argument& argument = Find(name);
  return NumberOf(argument, ValueOf(arguments_, argument, given_));
}

bool Values::IsSet(const std::string& name) const {
  return Text(name) == "true";
}

const std::vector<Operation>& Operations() {
  static const std::vector<Operation> all = AllOperations();
  return all;
}

const Operation* FindOperation(const std::string& words) {
  const auto found = std::ranges::find(Operations(), words, &Operation::words);
  return found == Operations().end() ? nullptr : &*found;
}

void CheckArguments(const Operation& operation, const ArgumentValues& given) {
  const bool insisted = given.contains(UNCHECKED) && TextOf(given.at(UNCHECKED)) == "true";
  for (const auto& [name, value] : given) {
    const auto argument = std::ranges::find(operation.arguments, name, &Argument::name);
    if (argument == operation.arguments.end()) {
      std::vector<std::string> known;
      for (const Argument& each : operation.arguments) known.push_back(each.name);
      throw UsageError(fmt::format("\"{}\" has no argument \"{}\"{}", operation.words, name,
                                   posix::DidYouMean(name, known)));
    }
    CheckArgument(*argument, TextOf(value), insisted);
  }
  for (const Argument& argument : operation.arguments) ValueOf(operation.arguments, argument, given);
  if (operation.check) operation.check(Values(operation.arguments, given));
}

std::vector<ReadingKind> LimitableReadings(const Operation& operation, const ArgumentValues& given) {
  std::vector<ReadingKind> kinds = operation.readings(Values(operation.arguments, given));
  const bool named = std::ranges::find(kinds, "status", &ReadingKind::name) != kinds.end();
  if (operation.has_status && !named) kinds.push_back({"status", "", ReadingKind::Value::Number});
  return kinds;
}

std::vector<ReadingKind> NoReadings(const Values&) {
  return {};
}

std::function<std::vector<ReadingKind>(const Values&)> ReadingsOf(std::uint32_t code) {
  return [code](const Values&) { return AnswerKinds(GetCommand(code).answer); };
}

std::function<std::vector<ReadingKind>(const Values&)> ReadingsLike(std::vector<Reading> examples) {
  return [kinds = KindsOf(examples)](const Values&) { return kinds; };
}

Outcome Perform(const Operation& operation, Session& session, const ArgumentValues& given) {
  const Values values(operation.arguments, given);
  Outcome outcome = operation.run(session, values);
  if (outcome.readings.empty()) return outcome;
  const std::vector<ReadingKind> declared = operation.readings(values);
  for (const Reading& reading : outcome.readings) {
    if (std::ranges::find(declared, reading.name, &ReadingKind::name) != declared.end()) continue;
    throw std::logic_error(
        fmt::format("\"{}\" does not declare the reading \"{}\"", operation.words, reading.name));
  }
  return outcome;
}

Outcome RunCommand(Session& session, const Command& command, const ArgumentValues& arguments) {
  Outcome outcome;
  outcome.answer = session.Run(command, arguments);
  outcome.status = AnswerStatus(command.answer, outcome.answer);
  outcome.failure = AnswerFailure(command, outcome.answer);
  if (command.answer.empty()) outcome.remark = "sent; the phone never answers this command";
  const bool readable = outcome.failure.empty() && !outcome.answer.empty();
  if (readable) outcome.readings = DecodeAnswer(command.answer, outcome.answer);
  return outcome;
}

ChunkReading ReadChunks(Session& session, const Command& command, const ArgumentValues& arguments,
                        std::size_t most, const std::function<void(std::size_t)>& taken) {
  ChunkReading reading;
  const auto fail = [&](std::string failure) {
    reading.failure = std::move(failure);
    return reading;
  };
  for (;;) {
    const Bytes answer = session.Run(command, arguments);
    reading.failure = AnswerFailure(command, answer);
    if (!reading.failure.empty()) return reading;
    const std::size_t room = answer.size() - 4;
    const std::size_t count = WordAt(answer, 0);
    if (count > room) return fail(fmt::format("the phone claims {} bytes in a chunk of {}", count, room));
    reading.bytes.insert(reading.bytes.end(), answer.begin() + 4,
                         answer.begin() + 4 + static_cast<std::ptrdiff_t>(count));
    if (reading.bytes.size() > most) return fail(fmt::format("the phone delivers more than {} bytes", most));
    taken(reading.bytes.size());
    if (count < room) return reading;
  }
}

std::string ReadFile(const std::string& path, std::size_t most) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) throw UsageError(fmt::format("there is no file {}", path));
  if (std::filesystem::is_directory(status))
    throw UsageError(fmt::format("{} is a folder, not a file", path));
  if (!std::filesystem::is_regular_file(status))
    throw UsageError(fmt::format("{} is not an ordinary file", path));
  std::ifstream file(path, std::ios::binary);
  if (!file) throw UsageError(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
  std::string content;
  std::array<char, 65536> room;
  while (content.size() <= most && (file.read(room.data(), room.size()), file.gcount() > 0)) {
    content.append(room.data(), static_cast<std::size_t>(file.gcount()));
  }
  if (content.size() > most) throw UsageError(fmt::format("{} is larger than {} bytes", path, most));
  return content;
}

void WriteFile(const std::string& path, const Bytes& bytes) {
  const std::string lost =
      posix::WriteWholeFile(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  if (lost.empty()) return;
  // Told here too, since a plan goes on.
  posix::TellLostOutput(lost);
  throw OutputLost(lost);
}

nlohmann::ordered_json ReadingsJson(const std::vector<Reading>& readings) {
  nlohmann::ordered_json object = nlohmann::ordered_json::object();
  for (const Reading& reading : readings) object[reading.name] = reading.value;
  return object;
}

static std::string TextWithUnit(const Reading& reading) {
  const bool has_unit = reading.unit.empty() || reading.text.ends_with(" " + reading.unit);
  return reading.text + (has_unit ? "" : " " + reading.unit);
}

std::string ReadingsText(const std::vector<Reading>& readings) {
  if (readings.size() == 1) {
    const std::string text = TextWithUnit(readings.front());
    return (text.starts_with('\n') ? text.substr(1) : text) + "\n";
  }
  std::size_t width = 0;
  for (const Reading& reading : readings) width = std::max(width, reading.name.size());
  std::string lines;
  for (const Reading& reading : readings)
    lines += fmt::format("{:<{}}  {}\n", reading.name + ":", width + 1, TextWithUnit(reading));
  return lines;
}

}  // namespace station
