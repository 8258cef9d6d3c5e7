// A program's completion script for bash: its subcommands and options, and words that the program tells when
// the key is pressed.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace completion {

// For a value that the help page calls `form`, `PROGRAM completion KIND` prints the words, one a line.
struct Source {
  std::string form;
  std::string kind;
};

// `more_words` are commands that the command line itself does not list.
std::string BashScript(const CLI::App& app, const std::vector<Source>& sources,
                       const std::vector<std::string>& more_words = {});

}  // namespace completion
