// What the tool's own subcommands read from their options.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "station/tool/command_line.h"

namespace station {

// The option's value, or the fallback if it is not given.
std::string OnlyText(ToolCommand::Given& given, const std::string& name, const std::string& fallback = "");

// NAME=VALUE, each of one use of the option. Throws UsageError.
std::map<std::string, std::string> ParseAssignments(const std::string& option,
                                                    const std::vector<std::string>& assignments);

// A whole number; the least one if the option is not given. Throws UsageError.
std::size_t GivenCount(ToolCommand::Given& given, const std::string& name, std::size_t least,
                       std::size_t most);

// Of --reserve.
constexpr std::size_t MOST_RESERVED = 100'000;

// As configured, or else this computer's name.
std::string StationName(const Configuration& configuration);

}  // namespace station
