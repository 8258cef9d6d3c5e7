// Completion of the tool's command line in bash.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace station {

// A script that completes subcommands and options, and file names where neither fits.
std::string BashCompletion(const CLI::App& app);

}  // namespace station
