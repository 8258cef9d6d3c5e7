// The command line: global options, and a subcommand for each operation.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "station/commands/errors.h"
#include "station/tasks/operation.h"

namespace station {

struct Settings {
  std::vector<std::string> ports;
  std::optional<std::chrono::milliseconds> answer_time;
  std::string trace_file;
  bool json = false;
  bool yes = false;
};

// What the parsed command line asks for: an operation, or something of the tool's own.
struct Request {
  Settings settings;
  const Operation* operation = nullptr;
  ArgumentValues arguments;
  std::function<ExitStatus()> action;
};

// The ports given, or the only one there is. Throws UsageError.
std::vector<std::string> ChosenPorts(const Settings& settings);

// The port for a command that goes to one phone. Throws UsageError.
std::string ChosenPort(const Settings& settings);

// Adds the global options and the operations' subcommands; parsing fills in the request.
void DescribeCommandLine(CLI::App& app, Request& request);

}  // namespace station
