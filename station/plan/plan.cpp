#include "station/plan/plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "posix/sha256.h"
#include "station/commands/errors.h"
#include "station/plan/json_fields.h"
#include "station/plan/outline.h"
#include "station/plan/step_parsing.h"
#include "station/plan/variables.h"

namespace station {

namespace {

using nlohmann::json;

constexpr std::size_t LARGEST_PLAN = 4u << 20;

json ParseText(const std::string& content) {
  static constexpr int DEEPEST = 20;
  const auto check_depth = [](int depth, json::parse_event_t, json&) {
    if (depth > DEEPEST) throw PlanError(fmt::format("it is nested more than {} deep", DEEPEST));
    return true;
  };
  try {
    return json::parse(content, check_depth, true, /*ignore_comments=*/true);
  } catch (const json::parse_error& error) {
    // The library's text tells the place: "... parse error at line 3, column 5: ...".
    const std::string text = error.what();
    throw PlanError(text.substr(std::min(text.find("parse error"), text.size())));
  }
}

json ParsePlan(const std::string& content) {
  json description = ParseText(content);
  if (!description.is_object()) throw PlanError("a plan must be an object with \"steps\"");
  CheckKeys(description, {"name", "description", "variables", "on-failure", "line", "steps"});
  return description;
}

// One too many does no harm: "$${name}" counts too.
std::set<std::string> VariablesIn(const json& description, const Variables& variables) {
  const std::string text = description.dump(-1, ' ', false, json::error_handler_t::replace);
  std::set<std::string> used;
  for (const auto& [name, value] : variables) {
    if (text.find("${" + name + "}") != std::string::npos) used.insert(name);
  }
  return used;
}

// "step 3 "Versions"".
std::string PlaceOf(std::size_t number, const json& description) {
  const bool named = description.is_object() && description.contains("name");
  return fmt::format("step {}{}", number, named ? " " + description["name"].dump() : "");
}

bool Mentions(const json& description, const std::vector<std::string>& variables) {
  const std::string text = description.dump();
  return std::ranges::any_of(
      variables, [&](const auto& name) { return text.find("${" + name + "}") != std::string::npos; });
}

// Adds the mistakes to those found before. Steps that need a variable with a mistake are left out.
std::vector<Step> ParseSteps(json plan, const SettledVariables& variables, bool shown,
                             std::vector<std::string>& mistakes) {
  const bool stops = StopsOnFailure(plan, true);
  const json steps = plan.value("steps", json::array());
  if (!steps.is_array() || steps.empty()) throw PlanError("a plan needs \"steps\"");
  std::vector<Step> parsed;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    json description = steps[i];
    if (Mentions(description, variables.wrong)) continue;
    try {
      const std::string condition = description.is_object() ? TextAt(description, "if") : "";
      const std::set<std::string> used = VariablesIn(description, variables.values);
      const bool open = shown || Mentions(description, variables.later);
      Substitute(description, variables.values);
      parsed.push_back(ParseStep(description, {stops, open}));
      parsed.back().variables = used;
      parsed.back().missed = !parsed.back().wanted && IsMissed(condition, plan["variables"]);
    } catch (const std::exception& error) {
      mistakes.push_back(fmt::format("{}: {}", PlaceOf(i + 1, description), error.what()));
    }
  }
  return parsed;
}

Plan ParseWhole(const std::string& path, const std::map<std::string, std::string>& given,
                const std::map<std::string, std::string>& built_in, PlanUse use) {
  const std::string content = ReadFile(path, LARGEST_PLAN);
  const json description = ParsePlan(content);
  const json declared = description.value("variables", json::object());
  Plan plan;
  plan.file = path;
  plan.sha256 = posix::Sha256(content);
  plan.name = TextAt(description, "name");
  if (plan.name.empty()) plan.name = path;
  SettledVariables variables = SettleVariables(declared, given, use);
  plan.variables = variables.values;
  variables.values.insert(variables.values.end(), built_in.begin(), built_in.end());
  std::vector<std::string> mistakes = std::move(variables.mistakes);
  try {
    ReadLineRules(description.value("line", json::object()), declared);
  } catch (const PlanError& error) {
    mistakes.emplace_back(error.what());
  }
  plan.steps = ParseSteps(description, variables, use == PlanUse::Show, mistakes);
  if (!mistakes.empty()) throw PlanMistakes(path, std::move(mistakes));
  return plan;
}

Plan Load(const std::string& path, const std::map<std::string, std::string>& given,
          const std::map<std::string, std::string>& built_in, PlanUse use) {
  try {
    return ParseWhole(path, given, built_in, use);
  } catch (const PlanMistakes&) {
    throw;
  } catch (const std::exception& error) {
    throw PlanMistakes(path, {error.what()});
  }
}

std::string Lines(const std::string& file, const std::vector<std::string>& mistakes) {
  std::string lines;
  for (const std::string& mistake : mistakes)
    lines += fmt::format("{}{}: {}", lines.empty() ? "" : "\n", file, mistake);
  return lines;
}

}  // namespace

json ReadPlanFile(const std::string& path) {
  return ParsePlan(ReadFile(path, LARGEST_PLAN));
}

std::vector<std::string> VariablesInOrder(const std::string& path) {
  const json variables = ReadPlanFile(path).value("variables", json::object());
  std::vector<std::string> names;
  std::string part;
  const auto note = [&](int depth, json::parse_event_t event, json& parsed) {
    if (event != json::parse_event_t::key) return true;
    const std::string key = parsed;
    if (depth == 1) part = key;
    const bool named = depth == 2 && part == "variables" && variables.contains(key);
    if (named && std::ranges::find(names, key) == names.end()) names.push_back(key);
    return true;
  };
  [[maybe_unused]] const json read =
      json::parse(ReadFile(path, LARGEST_PLAN), note, true, /*ignore_comments=*/true);
  return names;
}

PlanMistakes::PlanMistakes(const std::string& file, std::vector<std::string> mistakes)
    : PlanError(Lines(file, mistakes)), mistakes_(std::move(mistakes)) {}

Plan LoadPlan(const std::string& path, const std::map<std::string, std::string>& given,
              const std::map<std::string, std::string>& built_in) {
  return Load(path, given, built_in, PlanUse::Run);
}

Plan LoadPlanToCheck(const std::string& path, const std::map<std::string, std::string>& given,
                     const std::map<std::string, std::string>& built_in) {
  return Load(path, given, built_in, PlanUse::Check);
}

Plan LoadPlanToShow(const std::string& path, const std::map<std::string, std::string>& given,
                    const std::map<std::string, std::string>& built_in) {
  return Load(path, given, built_in, PlanUse::Show);
}

std::vector<PoolDraw> DrawsOfPlan(const std::string& path) {
  std::vector<PoolDraw> draws;
  try {
    const json description = ReadPlanFile(path);
    const json variables = description.value("variables", json::object());
    for (const auto& [name, declaration] : variables.items()) {
      const std::string pool = declaration.is_object() ? TextAt(declaration, "draw") : "";
      if (!pool.empty()) draws.push_back({name, pool});
    }
  } catch (const std::exception&) {
    return {};
  }
  return draws;
}

}  // namespace station
