// What is wrong with the words of a command line, before they are parsed.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

namespace completion {

// A sentence about the first command or option that does not exist, with the nearest ones that do, or about a
// command whose second word is missing. Empty if there is nothing of the kind. `more_commands` are those that
// the command line itself does not list; without a list, every first word may be one of them.
std::string Mistyped(
    const CLI::App& app, const std::vector<std::string>& words,
    const std::optional<std::vector<std::string>>& more_commands = std::vector<std::string>());

}  // namespace completion
