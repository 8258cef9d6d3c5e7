// The command line: global options, and a subcommand for each operation.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "station/operation.h"

namespace station {

struct Settings {
  std::vector<std::string> ports;
  std::optional<std::chrono::milliseconds> answer_time;
  std::string trace_file;
  bool json = false;
  bool yes = false;
};

// What the parsed command line asks for.
struct Request {
  Settings settings;
  const Operation* operation = nullptr;
  ArgumentTexts arguments;
};

// Adds the global options and the operations' subcommands; parsing fills in the request.
void DescribeCommandLine(CLI::App& app, Request& request);

}  // namespace station
