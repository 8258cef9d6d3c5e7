// What the tool can do with a phone: a single command of the protocol, or a task made of several. The command
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

// The result of an operation. If the phone refused it, there is a failure; if the link failed, LinkFailure is
// thrown.
struct Outcome {
  std::optional<std::int32_t> status;  // the answer's first word, of a single command
  Bytes answer;                        // all its bytes, of a single command
  std::vector<Reading> readings;
  std::string failure;  // empty for success
  std::string remark;   // for a person, if there are no readings
  std::vector<Picture> pictures;
  bool silent = false;  // it has already shown its result
};

// The arguments of one run. An argument that is not given has its default.
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
  // What it reads with these arguments; a reading may be missing if the operation fails.
  std::function<std::vector<ReadingKind>(const Values&)> readings;
  std::vector<std::uint32_t> codes;  // the commands that it sends
  std::string question = {};         // asked before it is run
  bool in_plans = true;              // false for what needs a person at a terminal
  bool has_status = false;           // its outcome has the status of a command
  // Throws UsageError if arguments that are right by themselves make no sense together. It sends nothing.
  std::function<void(const Values&)> check = {};
};

// The operations made from the command table's verbs, and the tasks.
const std::vector<Operation>& Operations();

const Operation* FindOperation(const std::string& words);

// The flag with which a person insists on values that are outside what the protocol states for them.
constexpr const char* UNCHECKED = "unchecked";

// Checks all arguments of a run before anything is sent. Throws UsageError, which names the argument, what it
// may be and the unit.
void CheckArguments(const Operation& operation, const ArgumentValues& given);

// What a plan may put a limit on: the readings and, for a single command, its status.
std::vector<ReadingKind> LimitableReadings(const Operation& operation, const ArgumentValues& given);

// For operations that read nothing, or the same whatever their arguments are.
std::vector<ReadingKind> NoReadings(const Values&);
std::function<std::vector<ReadingKind>(const Values&)> ReadingsOf(std::uint32_t code);
std::function<std::vector<ReadingKind>(const Values&)> ReadingsLike(std::vector<Reading> examples);

// Runs it. Throws std::logic_error if it reads what it does not declare.
Outcome Perform(const Operation& operation, Session& session, const ArgumentValues& given);

// Sends one command and decodes its answer.
Outcome RunCommand(Session& session, const Command& command, const ArgumentValues& arguments);

// Repeats a command that delivers something larger in chunks, until a chunk is not full. More than `most`
// bytes are a failure. `taken` is called with the number of bytes so far.
struct ChunkReading {
  Bytes bytes;
  std::string failure;
};
ChunkReading ReadChunks(Session& session, const Command& command, const ArgumentValues& arguments,
                        std::size_t most, const std::function<void(std::size_t)>& taken);

// The whole content of an ordinary file; a device or pipe could have no end. Throws UsageError, also if there
// is more than `most` bytes.
std::string ReadFile(const std::string& path, std::size_t most);

// The file is whole afterwards, or as it was before. Throws OutputLost if it cannot be written.
void WriteFile(const std::string& path, const Bytes& bytes);

// The readings as an object, by name.
nlohmann::ordered_json ReadingsJson(const std::vector<Reading>& readings);

// "name: text" lines; the text alone if there is only one reading.
std::string ReadingsText(const std::vector<Reading>& readings);

// Operations made of several commands, or of a command and work on the station's side; by their subject.
std::vector<Operation> ServiceTasks();
std::vector<Operation> ProductionTasks();
std::vector<Operation> ModemTasks();
std::vector<Operation> DeviceTasks();
std::vector<Operation> CameraTasks();

}  // namespace station
