#include "station/report/plan_listing.h"

#include <fmt/format.h>

#include <algorithm>

#include "station/commands/clean_text.h"

namespace station {

namespace {

using nlohmann::ordered_json;

double Seconds(std::chrono::milliseconds time) {
  return std::chrono::duration<double>(time).count();
}

// Empty also if an argument that decides about it has no value yet.
std::string UnitOf(const Step& step, const Limit& limit) {
  try {
    return FindReading(limit.reading, LimitableReadings(*step.operation, step.arguments)).unit;
  } catch (const std::exception&) {
    return "";
  }
}

std::string WorkText(const Step& step) {
  switch (step.kind) {
    case Step::Kind::Command: {
      std::string text = step.operation->words;
      for (const auto& [name, value] : step.arguments) text += fmt::format(" {}={}", name, TextOf(value));
      return text;
    }
    case Step::Kind::Wait:
      return fmt::format("wait {} s", Seconds(step.wait));
    case Step::Kind::Question:
      return "question: " + step.question;
    case Step::Kind::Program:
      return fmt::format("program{}: {}", step.background ? " in the background" : "",
                         fmt::join(step.program, " "));
  }
  return "";
}

std::string RulesText(const Step& step) {
  if (!step.wanted) return step.missed ? "not run: its value is not set" : "not asked for";
  std::vector<std::string> rules;
  if (step.repeat > 1) rules.push_back(fmt::format("repeated {} times", step.repeat));
  if (step.retries > 0) rules.push_back(fmt::format("{} retries", step.retries));
  if (step.always) rules.emplace_back("always run");
  if (step.stops) rules.emplace_back("a failure ends the plan");
  return fmt::format("{}", fmt::join(rules, ", "));
}

ordered_json StepJson(const Step& step, std::size_t number) {
  ordered_json object = {{"number", number}, {"name", step.name}, {"wanted", step.wanted}};
  if (!step.wanted) return object;
  if (step.kind == Step::Kind::Command) {
    object["command"] = step.operation->words;
    ordered_json arguments = ordered_json::object();
    for (const auto& [name, value] : step.arguments) arguments[name] = TextOf(value);
    object["arguments"] = std::move(arguments);
  }
  if (step.kind == Step::Kind::Wait) object["wait"] = Seconds(step.wait);
  if (step.kind == Step::Kind::Question) object["question"] = step.question;
  if (step.kind == Step::Kind::Program) object["program"] = step.program;
  object["repeat"] = step.repeat;
  object["retries"] = step.retries;
  object["always"] = step.always;
  object["on-failure"] = step.stops ? "stop" : "continue";
  object["limits"] = ordered_json::array();
  for (const Limit& limit : step.limits) {
    object["limits"].push_back({{"reading", limit.reading},
                                {"limit", limit.stated},
                                {"text", LimitText(limit)},
                                {"unit", UnitOf(step, limit)}});
  }
  return object;
}

}  // namespace

std::string PlanText(const Plan& plan) {
  std::string text = fmt::format("{}: {} steps, from {}\n", plan.name, plan.steps.size(), plan.file);
  for (std::size_t i = 0; i < plan.steps.size(); ++i) {
    const Step& step = plan.steps[i];
    const std::string rules = RulesText(step);
    text += fmt::format("{:4}  {}{}\n", i + 1, step.name, rules.empty() ? "" : " (" + rules + ")");
    if (step.wanted) text += fmt::format("        {}\n", WorkText(step));
    for (const Limit& limit : step.limits) {
      const std::string unit = UnitOf(step, limit);
      text += fmt::format("        {}{}: {}\n", limit.reading, unit.empty() ? "" : " in " + unit,
                          LimitText(limit));
    }
  }
  return CleanText(text);
}

std::string PlanJson(const Plan& plan) {
  ordered_json steps = ordered_json::array();
  for (const Step& step : plan.steps) steps.push_back(StepJson(step, steps.size() + 1));
  return JsonText({{"plan", plan.name},
                   {"file", plan.file},
                   {"sha256", plan.sha256},
                   {"steps", std::move(steps)}}) +
         "\n";
}

}  // namespace station
