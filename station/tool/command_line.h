// The command line: global options, a subcommand for each operation, and the tool's own subcommands.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "station/commands/errors.h"
#include "station/tasks/operation.h"

namespace CLI {
class App;
}

namespace station {

struct Settings {
  std::vector<std::string> ports;
  std::optional<std::chrono::milliseconds> answer_time;
  std::string trace_file;
  bool json = false;
  bool yes = false;
};

// What the command line asks for: an operation on a phone, or one of the tool's own subcommands.
struct Invocation {
  Settings settings;
  const Operation* operation = nullptr;
  ArgumentValues arguments;
  std::function<ExitStatus(const Settings&)> own_subcommand;
};

// Returns an exit status if there is nothing left to do: help was shown, or what is wrong with the words.
std::variant<Invocation, ExitStatus> ParseCommandLine(int count, char** words);

// The ports given, or the only one that exists. Throws UsageError.
std::vector<std::string> ChosenPorts(const Settings& settings);

// The port for a command that goes to one phone. Throws UsageError.
std::string ChosenPort(const Settings& settings);

// The trace that the settings ask for, if any.
std::unique_ptr<Trace> OpenTrace(const Settings& settings, const std::string& port);

// A bash script that completes subcommands and options, and otherwise file names.
std::string BashCompletion();

// Adds the tool's own subcommands: plans, traces, ports and the tool's descriptions.
void AddToolCommands(CLI::App& app, Invocation& invocation);

}  // namespace station
