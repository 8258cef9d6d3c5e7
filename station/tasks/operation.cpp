#include "station/tasks/operation.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "station/commands/errors.h"
#include "station/tasks/tasks.h"

namespace station {

namespace {

// Larger than anything that the phone hands out in chunks: a reader that never ends is a failure.
constexpr std::size_t LARGEST_DOCUMENT = 64u << 20;

Operation VerbOperation(const Command& command, const Verb& verb) {
  Operation operation{verb.words, verb.help, {}, {}, {command.code}, verb.question};
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
  for (const auto& tasks :
       {LinkTasks(), RecordTasks(), ModemTasks(), KeyTasks(), RadioTasks(), CameraTasks()}) {
    all.insert(all.end(), tasks.begin(), tasks.end());
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

Outcome Perform(const Operation& operation, Session& session, const ArgumentValues& given) {
  return operation.run(session, Values(operation.arguments, given));
}

Outcome RunCommand(Session& session, const Command& command, const ArgumentValues& arguments) {
  const Bytes answer = session.Run(command, arguments);
  Outcome outcome;
  outcome.status = AnswerStatus(command.answer, answer);
  outcome.failure = AnswerFailure(command, answer);
  if (command.answer.empty()) outcome.remark = "sent; the phone never answers this command";
  if (outcome.failure.empty() && !answer.empty()) outcome.readings = DecodeAnswer(command.answer, answer);
  return outcome;
}

ChunkReading ReadChunks(Session& session, const Command& command, const ArgumentValues& arguments,
                        const std::function<void(std::size_t)>& taken) {
  ChunkReading reading;
  for (;;) {
    const Bytes answer = session.Run(command, arguments);
    reading.failure = AnswerFailure(command, answer);
    if (!reading.failure.empty()) return reading;
    const std::size_t room = answer.size() - 4;
    const std::size_t count = WordAt(answer, 0);
    if (count > room)
      reading.failure = fmt::format("the phone claims {} bytes in a chunk of {}", count, room);
    if (reading.bytes.size() > LARGEST_DOCUMENT) reading.failure = "what the phone hands out has no end";
    if (!reading.failure.empty()) return reading;
    reading.bytes.insert(reading.bytes.end(), answer.begin() + 4,
                         answer.begin() + 4 + static_cast<std::ptrdiff_t>(count));
    taken(reading.bytes.size());
    if (count < room) return reading;
  }
}

void WriteFile(const std::string& path, const Bytes& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) throw UsageError(fmt::format("cannot write {}", path));
}

}  // namespace station
