// phonetest export: stored runs for other programs.
#include <fmt/format.h>

#include <charconv>

#include "posix/whole_output.h"
#include "station/commands/clean_text.h"
#include "station/tool/results_commands.h"

namespace station {

namespace {

using Given = ToolCommand::Given;
using Kind = ToolCommand::Option::Kind;
using Cells = std::vector<std::string>;

// RFC 4180. A cell that a spreadsheet would compute is kept a text by an apostrophe before it.
std::string Cell(const std::string& text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool number = error == std::errc{} && end == text.data() + text.size();
  std::string cell = !number && text.find_first_of("=+-@\t") == 0 ? "'" + text : text;
  if (cell.find_first_of("\",\r\n") == std::string::npos) return cell;
  for (std::size_t at = cell.find('"'); at != std::string::npos; at = cell.find('"', at + 2))
    cell.insert(at, "\"");
  return "\"" + cell + "\"";
}

void PrintLine(const Cells& cells) {
  std::string line;
  for (std::size_t i = 0; i < cells.size(); ++i) line += (i == 0 ? "" : ",") + Cell(CleanText(cells[i]));
  posix::Print("{}\r\n", line);
}

Cells RunCells(const RunRow& run) {
  return {run.uuid,
          run.plan,
          run.plan_sha256,
          StoredVerdictWord(run.verdict),
          MomentText(run.started),
          run.serial,
          run.identity,
          run.address,
          run.station,
          run.person,
          run.slot};
}

Cells Joined(Cells first, const Cells& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

std::string Number(const std::optional<double>& value) {
  return value ? fmt::format("{}", *value) : "";
}

// The lines of one run: of itself, of its steps, or of its readings.
void PrintRun(Connection& connection, const RunRow& run, const std::string& table) {
  if (table == "runs") {
    PrintLine(Joined(RunCells(run), {MomentText(run.ended), std::to_string(run.microseconds)}));
    return;
  }
  for (const StoredStep& step : StepsOfRun(connection, run.key)) {
    const Cells cells =
        Joined(RunCells(run), {std::to_string(step.number), step.name, StoredVerdictWord(step.verdict)});
    if (table == "steps") {
      PrintLine(Joined(cells, {step.work, std::to_string(step.attempts), std::to_string(step.microseconds),
                               step.message}));
      continue;
    }
    for (const StoredValue& value : step.values) {
      PrintLine(Joined(
          cells,
          {value.reading, ValueText(value), value.unit, Number(value.minimum), Number(value.maximum),
           value.stated, value.verdict == StoredVerdict::Skipped ? "" : StoredVerdictWord(value.verdict)}));
    }
  }
}

Cells Header(const std::string& table) {
  const Cells run = {"run",      "plan",    "plan_sha256", "verdict",  "started", "serial",
                     "identity", "address", "station",     "operator", "slot"};
  if (table == "runs") return Joined(run, {"ended", "microseconds"});
  const Cells step = Joined(run, {"step", "name", "step_verdict"});
  if (table == "steps") return Joined(step, {"work", "attempts", "microseconds", "message"});
  if (table == "measurements")
    return Joined(step, {"reading", "value", "unit", "minimum", "maximum", "limit", "value_verdict"});
  throw UsageError(fmt::format("--table: '{}' is not runs, steps or measurements", table));
}

ExitStatus Export(const Settings& settings, Given& given) {
  const std::string table = given["table"].empty() ? "measurements" : given["table"].front();
  const Cells header = Header(table);
  const RunFilter filter = FilterOf(given);
  Connection connection = OpenedResults(settings, given);
  if (!settings.json) PrintLine(header);
  // In portions, so that any number of runs fits into memory.
  constexpr std::size_t PORTION = 1000;
  std::int64_t last = 0;
  for (;;) {
    const std::vector<RunRow> runs = FindRunsAfter(connection, filter, last, PORTION);
    for (const RunRow& run : runs) {
      if (settings.json) {
        posix::Print(
            "{}\n",
            DetailsJson(connection, run).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
      } else {
        PrintRun(connection, run, table);
      }
      last = run.key;
    }
    if (runs.size() < PORTION) return ExitStatus::Passed;
  }
}

}  // namespace

std::vector<ToolCommand> ExportCommands() {
  return {{"export", "print stored runs as CSV, or with --json each whole run as a line of JSON",
           WithFilter({{Kind::Text, "table",
                        "what the CSV has a line for: runs, steps or measurements [measurements]", "TABLE"}}),
           Export}};
}

}  // namespace station
