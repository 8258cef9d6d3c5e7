// phonetest yield: how good the phones of a day, a plan or a station are.
#include <fmt/format.h>

#include <algorithm>

#include "posix/whole_output.h"
#include "station/commands/clean_text.h"
#include "station/results/yield.h"
#include "station/tool/results_commands.h"

namespace station {

namespace {

using Given = ToolCommand::Given;
using Kind = ToolCommand::Option::Kind;
using nlohmann::ordered_json;

YieldBy ParseBy(const std::string& word) {
  constexpr std::pair<const char*, YieldBy> WORDS[] = {
      {"plan", YieldBy::Plan}, {"day", YieldBy::Day}, {"hour", YieldBy::Hour}, {"station", YieldBy::Station}};
  for (const auto& [known, by] : WORDS) {
    if (word == known) return by;
  }
  throw UsageError(fmt::format("--by: '{}' is not plan, day, hour or station", word));
}

ordered_json Optional(const std::optional<double>& value) {
  return value ? ordered_json(*value) : ordered_json();
}

std::string Shown(const std::optional<double>& value, int digits) {
  return value ? fmt::format("{:.{}f}", *value, digits) : "-";
}

ordered_json Json(const std::vector<YieldRow>& yields, const std::vector<FailingStep>& failing,
                  const std::vector<MeasurementStatistics>& statistics) {
  ordered_json object = {{"yield", ordered_json::array()},
                         {"failing-steps", ordered_json::array()},
                         {"measurements", ordered_json::array()}};
  for (const YieldRow& row : yields) {
    object["yield"].push_back({{"group", row.group},
                               {"runs", row.runs},
                               {"phones", row.phones},
                               {"passed", row.passed},
                               {"first-tested", row.first_tested},
                               {"first-passed", row.first_passed},
                               {"runs-without-verdict", row.without_verdict},
                               {"first-pass-yield", Optional(FirstPassYield(row))},
                               {"final-yield", Optional(FinalYield(row))}});
  }
  for (const FailingStep& step : failing) {
    object["failing-steps"].push_back({{"plan", step.plan},
                                       {"number", step.number},
                                       {"step", step.name},
                                       {"runs", step.runs},
                                       {"phones", step.phones}});
  }
  for (const MeasurementStatistics& one : statistics) {
    object["measurements"].push_back({{"plan", one.plan},
                                      {"number", one.number},
                                      {"step", one.step},
                                      {"reading", one.reading},
                                      {"unit", one.unit},
                                      {"minimum", Optional(one.minimum)},
                                      {"maximum", Optional(one.maximum)},
                                      {"count", one.count},
                                      {"mean", one.mean},
                                      {"spread", Optional(Spread(one))},
                                      {"lowest", one.lowest},
                                      {"highest", one.highest},
                                      {"cp", Optional(Cp(one))},
                                      {"cpk", Optional(Cpk(one))},
                                      {"few", one.count < ENOUGH_VALUES}});
  }
  return object;
}

std::string LimitsOf(const MeasurementStatistics& one) {
  return fmt::format("{}..{}", one.minimum ? fmt::format("{}", *one.minimum) : "",
                     one.maximum ? fmt::format("{}", *one.maximum) : "");
}

std::string Counted(std::int64_t count, const char* what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

// So wide that the figures stand below each other, whatever a plan or a station is called.
std::size_t WidthOf(const std::vector<YieldRow>& yields) {
  constexpr std::size_t LEAST = 32;
  std::size_t width = LEAST;
  for (const YieldRow& row : yields) width = std::max(width, row.group.size() + 1);
  return width;
}

std::string Text(const std::vector<YieldRow>& yields, const std::vector<FailingStep>& failing,
                 const std::vector<MeasurementStatistics>& statistics) {
  const std::size_t width = WidthOf(yields);
  std::string text =
      fmt::format("{:<{}}{:>9}{:>9}{:>14}{:>9}\n", "", width, "runs", "phones", "first pass %", "final %");
  for (const YieldRow& row : yields) {
    text += fmt::format("{:<{}}{:>9}{:>9}{:>14}{:>9}", row.group, width, row.runs, row.phones,
                        Shown(FirstPassYield(row), 2), Shown(FinalYield(row), 2));
    text += row.without_verdict == 0
                ? "\n"
                : fmt::format("  and {} without a verdict\n", Counted(row.without_verdict, "run"));
  }
  if (!failing.empty()) text += "\nfailing steps\n";
  for (const FailingStep& step : failing) {
    text += fmt::format("{:>12}, {}: {} {} ({})\n", Counted(step.runs, "run"), Counted(step.phones, "phone"),
                        step.number, step.name, step.plan);
  }
  if (!statistics.empty()) {
    text += fmt::format("\n{:<44}{:>20}{:>8}{:>12}{:>12}{:>8}{:>8}\n", "measurements", "limits", "n", "mean",
                        "spread", "Cp", "Cpk");
  }
  for (const MeasurementStatistics& one : statistics) {
    text += fmt::format("{:<44}{:>20}{:>8}{:>12.6g}{:>12}{:>8}{:>8}{}\n", one.step + ": " + one.reading,
                        LimitsOf(one), one.count, one.mean,
                        Spread(one) ? fmt::format("{:.4g}", *Spread(one)) : "-", Shown(Cp(one), 2),
                        Shown(Cpk(one), 2), one.count < ENOUGH_VALUES ? "  few values" : "");
  }
  return text;
}

ExitStatus ShowYield(const Settings& settings, Given& given) {
  const YieldBy by = ParseBy(given["by"].empty() ? "plan" : given["by"].front());
  const RunFilter filter = FilterOf(given);
  Connection connection = OpenedResults(settings, given);
  const auto yields = Yields(connection, filter, by);
  const auto failing = FailingSteps(connection, filter);
  const auto statistics = Statistics(connection, filter);
  posix::Print("{}", settings.json ? JsonText(Json(yields, failing, statistics)) + "\n"
                                   : CleanText(Text(yields, failing, statistics)));
  return ExitStatus::Passed;
}

}  // namespace

std::vector<ToolCommand> YieldCommands() {
  return {{"yield", "first-pass and final yield, failing steps, and measurements against their limits",
           WithFilter({{Kind::Text, "by", "a line for each plan, day, hour or station [plan]", "WORD"}}),
           ShowYield}};
}

}  // namespace station
