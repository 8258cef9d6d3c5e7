// What can be asked of the tool: a single command of the protocol, or a task made of several. The command
// line and the test plans both offer exactly these.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "station/commands/answer.h"
#include "station/commands/argument.h"
#include "station/commands/command.h"
#include "station/link/session.h"

namespace station {

struct Picture {
  std::string name;
  Bytes jpeg;
};

// How it went. An operation that the phone refused has a failure; one that the link prevented throws
// LinkFailure.
struct Outcome {
  std::optional<std::int32_t> status;  // the answer's first word, of a single command
  std::vector<Reading> readings;
  std::string failure;  // empty when it went well
  std::string remark;   // for a person, where there is nothing to read
  std::vector<Picture> pictures;
  bool silent = false;  // it has shown what there is to show itself
};

// The arguments of one run, those not given taken from what stands in for them.
class Values {
 public:
  Values(const std::vector<Argument>& arguments, const ArgumentValues& given)
      : arguments_(arguments), given_(given) {}

  std::string Text(const std::string& name) const;
  std::int64_t Number(const std::string& name) const;
  bool IsSet(const std::string& name) const;

  const ArgumentValues& Given() const {
    return given_;
  }

 private:
  const Argument& Find(const std::string& name) const;

  const std::vector<Argument>& arguments_;
  const ArgumentValues& given_;
};

struct Operation {
  std::string words;  // on the command line, and the name in a plan
  std::string help;   // one line
  std::vector<Argument> arguments;
  std::function<Outcome(Session&, const Values&)> run;
  std::vector<std::uint32_t> codes;  // the commands that it sends
  std::string question = {};         // asked before it is run
  bool in_plans = true;              // false for what needs a person at a terminal
};

// The operations made from the command table's verbs, and the tasks.
const std::vector<Operation>& Operations();

const Operation* FindOperation(const std::string& words);

Outcome Perform(const Operation& operation, Session& session, const ArgumentValues& given);

// Sends one command and decodes its answer.
Outcome RunCommand(Session& session, const Command& command, const ArgumentValues& arguments);

// A command that delivers the chunks of something larger, until one comes that is not full. `taken` is called
// with the number of bytes so far.
struct ChunkReading {
  Bytes bytes;
  std::string failure;
};
ChunkReading ReadChunks(Session& session, const Command& command, const ArgumentValues& arguments,
                        const std::function<void(std::size_t)>& taken);

// Throws UsageError when the file cannot be written.
void WriteFile(const std::string& path, const Bytes& bytes);

}  // namespace station
