// The subcommands about results that were stored: history, pools of numbers, yield and export.
#pragma once

#include <optional>
#include <vector>

#include "station/results/address.h"
#include "station/results/history.h"
#include "station/tool/command_line.h"

namespace station {

// --results, which every command has that uses the database.
ToolCommand::Option ResultsOption();

// The database that the command line or the configuration names, or the user's own. None with --no-results.
std::optional<ResultsAddress> GivenResults(const Settings& settings, ToolCommand::Given& given);

// The database, with what was spooled for it handed in, and without runs that only seem to go on. With
// `makes`, a file that does not exist is made; otherwise only that of this user is. Throws ResultsError and
// UsageError.
Connection OpenedResults(const Settings& settings, ToolCommand::Given& given, bool makes = false);

// The options by which runs are chosen, after `options`, and what they say.
std::vector<ToolCommand::Option> WithFilter(std::vector<ToolCommand::Option> options);
RunFilter FilterOf(ToolCommand::Given& given);

// A run's row, and the run with its steps, readings and attachments.
nlohmann::ordered_json RunJson(const RunRow& run);
nlohmann::ordered_json DetailsJson(Connection& connection, const RunRow& run);

// "2024-02-29T12:30:00+01:00", local time; empty for 0.
std::string MomentText(std::int64_t milliseconds);

std::vector<ToolCommand> HistoryCommands();
std::vector<ToolCommand> NumberCommands();
std::vector<ToolCommand> YieldCommands();
std::vector<ToolCommand> ExportCommands();

}  // namespace station
