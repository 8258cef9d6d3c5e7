// The command line: global options, a subcommand for each operation, and the tool's own subcommands.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "station/commands/errors.h"
#include "station/configuration/configuration.h"
#include "station/tasks/operation.h"

namespace station {

struct Settings {
  std::vector<std::string> ports;
  std::optional<std::chrono::milliseconds> answer_time;
  std::string trace_file;
  bool json = false;
  bool yes = false;
  Configuration configuration;
};

// A subcommand that is not about one command of the phone: plans, traces, ports and the tool's descriptions.
struct ToolCommand {
  struct Option {
    // A positional one must be given if it is not optional.
    enum class Kind { Positional, OptionalPositional, Text, Repeated, Flag };
    Kind kind;
    std::string name;
    std::string help;
    std::string form = {};  // "FILE"; what the help page shows for the value
  };
  using Given = std::map<std::string, std::vector<std::string>>;

  std::string word;
  std::string help;
  std::vector<Option> options;
  std::function<ExitStatus(const Settings&, Given&)> run;
  bool configured = true;  // false for what works the same on every station
};

const std::vector<ToolCommand>& ToolCommands();

// What the command line asks for: an operation on a phone, or a subcommand of the tool.
struct Invocation {
  Settings settings;
  const Operation* operation = nullptr;
  ArgumentValues arguments;
  const ToolCommand* tool_command = nullptr;
  ToolCommand::Given given;
};

// Returns an exit status if there is nothing more to do, after help or an error message.
std::variant<Invocation, ExitStatus> ParseCommandLine(int count, char** words);

// The ports given, or else configured, or else the only one that exists. Throws UsageError and LinkFailure.
std::vector<std::string> ChosenPorts(const Settings& settings);

// The port for a command that goes to one phone. Throws UsageError and LinkFailure.
std::string ChosenPort(const Settings& settings);

// The trace that the settings ask for, if any.
std::unique_ptr<Trace> OpenTrace(const Settings& settings, const std::string& port);

// What the help says of an argument: its meaning, its choices and its default.
std::string HelpText(const Argument& argument);

// A bash script that completes subcommands, options, plans and ports, and otherwise file names.
std::string BashCompletion();

}  // namespace station
