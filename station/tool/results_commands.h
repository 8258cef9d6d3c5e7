// The subcommands about results that were stored: history, and what the database is asked for.
#pragma once

#include <optional>
#include <vector>

#include "station/results/address.h"
#include "station/tool/command_line.h"

namespace station {

// --results, which every command has that uses the database.
ToolCommand::Option ResultsOption();

// The database that the command line or the configuration names, or the user's own. None with --no-results.
std::optional<ResultsAddress> GivenResults(const Settings& settings, ToolCommand::Given& given);

std::vector<ToolCommand> ResultsCommands();

}  // namespace station
