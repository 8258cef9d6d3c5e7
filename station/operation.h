// What can be asked of the tool: a single command of the protocol, or a task made of several. The command
// line and the test plans both offer exactly these.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "station/answer.h"
#include "station/argument.h"
#include "station/command.h"
#include "station/session.h"

namespace station {

struct Picture {
  std::string name;
  Bytes jpeg;
};

// How it went. An operation that the phone refused has a failure; one that the link prevented throws
// LinkFailure.
struct Outcome {
  std::vector<Reading> readings;
  std::string failure;  // empty when it went well
  std::string remark;   // for a person, where there is nothing to read
  std::vector<Picture> pictures;
};

struct Operation {
  std::string words;  // on the command line, and the name in a plan
  std::string help;   // one line
  std::vector<Argument> arguments;
  std::function<Outcome(Session&, const ArgumentTexts&)> run;
  std::vector<std::uint32_t> codes;  // the commands that it sends
  std::string question = {};         // asked before it is run
  bool in_plans = true;              // false for what needs a person at a terminal
};

// The operations made from the command table's verbs, and the tasks.
const std::vector<Operation>& Operations();

const Operation* FindOperation(const std::string& words);

// Sends one command and decodes its answer.
Outcome RunCommand(Session& session, const Command& command, const ArgumentTexts& arguments);

// The verbs of a command, each as an operation.
std::vector<Operation> VerbOperations(const Command& command);

}  // namespace station
