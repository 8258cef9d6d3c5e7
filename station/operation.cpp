#include "station/operation.h"

#include <algorithm>

#include "station/tasks.h"

namespace station {

namespace {

std::vector<Operation> AllOperations() {
  std::vector<Operation> all;
  for (const Command& command : CommandTable()) {
    for (Operation& operation : VerbOperations(command)) all.push_back(std::move(operation));
  }
  for (Operation& task : Tasks()) all.push_back(std::move(task));
  return all;
}

}  // namespace

const std::vector<Operation>& Operations() {
  static const std::vector<Operation> all = AllOperations();
  return all;
}

const Operation* FindOperation(const std::string& words) {
  const auto found = std::ranges::find(Operations(), words, &Operation::words);
  return found == Operations().end() ? nullptr : &*found;
}

Outcome RunCommand(Session& session, const Command& command, const ArgumentTexts& arguments) {
  const Bytes answer = session.Run(command, arguments);
  Outcome outcome;
  outcome.failure = AnswerFailure(command, answer);
  if (command.answer.empty()) outcome.remark = "sent; the phone never answers this command";
  if (outcome.failure.empty() && !answer.empty()) outcome.readings = DecodeAnswer(command.answer, answer);
  return outcome;
}

std::vector<Operation> VerbOperations(const Command& command) {
  std::vector<Operation> operations;
  for (const Verb& verb : command.verbs) {
    Operation operation{verb.words, verb.help, {}, {}, {command.code}, verb.question};
    for (const Argument& argument : command.request) {
      const bool asked = argument.kind != Argument::Kind::Ignored && !verb.settled.contains(argument.name);
      if (!asked) continue;
      operation.arguments.push_back(argument);
      if (argument.name != verb.leads) continue;
      operation.arguments.back().positional = true;
      operation.arguments.back().fallback.reset();
    }
    operation.run = [&command, settled = verb.settled](Session& session, const ArgumentTexts& given) {
      ArgumentTexts arguments = settled;
      arguments.insert(given.begin(), given.end());
      return RunCommand(session, command, arguments);
    };
    operations.push_back(std::move(operation));
  }
  return operations;
}

}  // namespace station
