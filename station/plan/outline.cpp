#include "station/plan/outline.h"

#include <fmt/format.h>

#include <algorithm>

#include "station/commands/errors.h"
#include "station/plan/json_fields.h"
#include "station/plan/variable_checks.h"

namespace station {

namespace {

using nlohmann::json;

std::vector<std::string> Names(const json& object, const char* key) {
  const json value = object.value(key, json::array());
  if (value.is_string()) return {value.get<std::string>()};
  std::vector<std::string> names;
  for (const json& name : value.is_array() ? value : json::array({nullptr})) {
    if (!name.is_string()) throw PlanError(fmt::format("\"{}\" is no name and no list of names", key));
    names.push_back(name);
  }
  return names;
}

PlanVariable ReadVariable(const std::string& name, const json& declaration) {
  if (!declaration.is_object()) throw PlanError(fmt::format("variable \"{}\" is not an object", name));
  const json fallback = declaration.value("default", json());
  const bool required = declaration.value("required", json(false)) == json(true);
  const bool drawn = declaration.contains("draw");
  return {.name = name,
          .help = TextAt(declaration, "help"),
          .declaration = declaration,
          .needed = !drawn && (fallback.is_null() || (required && fallback == json("")))};
}

std::string StepName(const json& step) {
  for (const char* key : {"name", "command", "question"}) {
    if (step.is_object() && step.contains(key) && step[key].is_string()) return step[key];
  }
  return "step";
}

}  // namespace

json SerialChecks(const LineRules& rules) {
  if (rules.serial_pattern.empty()) return json::object();
  return {{"pattern", rules.serial_pattern}, {PATTERN_HELP, rules.serial_pattern_help}};
}

LineRules ReadLineRules(const json& rules, const json& variables) {
  if (!rules.is_object()) throw PlanError("\"line\" is not an object");
  for (const auto& [key, value] : rules.items()) {
    static constexpr std::string_view KNOWN[] = {"serial",   "serial-pattern",  "serial-pattern-help",
                                                 "requires", "without-results", "retest-reason",
                                                 "settings"};
    if (std::ranges::find(KNOWN, key) == std::end(KNOWN))
      throw PlanError(fmt::format("\"line\": unknown key \"{}\"", key));
  }
  LineRules read{.serial = TextAt(rules, "serial"),
                 .serial_pattern = TextAt(rules, "serial-pattern"),
                 .serial_pattern_help = TextAt(rules, "serial-pattern-help"),
                 .requires_plans = Names(rules, "requires"),
                 .settings = Names(rules, "settings"),
                 .asks_retest_reason = YesOrNo(rules, "retest-reason", false)};
  std::vector<std::string> named = read.settings;
  if (!read.serial.empty()) named.push_back(read.serial);
  for (const std::string& name : named) {
    if (!variables.contains(name))
      throw PlanError(fmt::format("\"line\": the plan has no variable \"{}\"", name));
  }
  VariableFault(SerialChecks(read), "");  // throws if it is no regular expression
  const std::string choice = TextAt(rules, "without-results", "refuse");
  if (choice != "refuse" && choice != "run") {
    throw PlanError("\"line\": \"without-results\" must be \"refuse\" or \"run\"");
  }
  read.runs_without_results = choice == "run";
  return read;
}

PlanOutline ReadPlanOutline(const std::string& path) {
  try {
    const json description = ReadPlanFile(path);
    PlanOutline outline{.name = TextAt(description, "name", path), .file = path};
    const json variables = description.value("variables", json::object());
    // A label is scanned in the plan's order.
    for (const std::string& name : VariablesInOrder(path))
      outline.variables.push_back(ReadVariable(name, variables[name]));
    for (const json& step : description.value("steps", json::array()))
      outline.steps.push_back(StepName(step));
    outline.line = ReadLineRules(description.value("line", json::object()), variables);
    return outline;
  } catch (const std::exception& error) {
    throw PlanError(fmt::format("{}: {}", path, error.what()));
  }
}

}  // namespace station
