#include "station/plan/plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>

#include "posix/nearest_words.h"
#include "posix/sha256.h"
#include "station/commands/errors.h"
#include "station/plan/outline.h"
#include "station/plan/variables.h"

namespace station {

namespace {

using nlohmann::json;

constexpr std::size_t LARGEST_PLAN = 4u << 20;

// The keys that every kind of step may have.
const std::set<std::string, std::less<>> COMMON_KEYS = {"name",       "if",     "retries", "retry-wait",
                                                        "on-failure", "always", "picture", "repeat"};

std::chrono::milliseconds Seconds(const json& step, const std::string& key, double fallback) {
  constexpr double LONGEST = 24 * 3600;
  const json value = step.value(key, json(fallback));
  double seconds = -1;
  if (value.is_number()) seconds = value;
  if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error != std::errc() || end != text.data() + text.size()) seconds = -1;
  }
  if (!(seconds >= 0 && seconds <= LONGEST)) {
    throw PlanError(fmt::format("\"{}\": {} is not a time in seconds from 0 to 86400", key, value.dump()));
  }
  return std::chrono::milliseconds(std::lround(seconds * 1000));
}

int Count(const json& step, const std::string& key, int fallback, int least) {
  constexpr int MOST = 1'000'000;
  const json value = step.value(key, json(fallback));
  if (!value.is_number_integer() || value < least || value > MOST) {
    throw PlanError(
        fmt::format("\"{}\": {} is not a whole number from {} to {}", key, value.dump(), least, MOST));
  }
  return value;
}

bool YesOrNo(const json& step, const std::string& key, bool fallback) {
  const json value = step.value(key, json(fallback));
  if (!value.is_boolean()) throw PlanError(fmt::format("\"{}\" must be true or false", key));
  return value;
}

std::string TextAt(const json& step, const std::string& key) {
  const json value = step.value(key, json(""));
  if (!value.is_string()) throw PlanError(fmt::format("\"{}\" is not a text", key));
  return value;
}

bool StopsOnFailure(const json& holder, bool fallback) {
  const std::string choice = TextAt(holder, "on-failure");
  if (choice.empty()) return fallback;
  if (choice != "stop" && choice != "continue")
    throw PlanError("\"on-failure\" must be \"stop\" or \"continue\"");
  return choice == "stop";
}

void CheckKeys(const json& holder, const std::set<std::string, std::less<>>& known) {
  for (const auto& [key, value] : holder.items()) {
    if (!known.contains(key))
      throw PlanError(
          fmt::format("unknown key \"{}\"{}", key, posix::DidYouMean(key, {known.begin(), known.end()})));
  }
}

void ParseArguments(Step& step, const json& arguments) {
  if (!arguments.is_object()) throw PlanError("\"arguments\" is not an object");
  for (const auto& [name, value] : arguments.items()) {
    step.arguments[name] = value.is_string() ? value.get<std::string>() : value.dump();
  }
}

bool IsOpen(const json& value) {
  return value.dump().find("${") != std::string::npos;
}

json LimitsOf(const json& description) {
  json limits = description.value("limits", json::object());
  if (!limits.is_object()) throw PlanError("\"limits\" is not an object");
  return limits;
}

void CheckCommand(const Step& step) {
  CheckArguments(*step.operation, step.arguments);
  const std::vector<ReadingKind> readings = LimitableReadings(*step.operation, step.arguments);
  for (const Limit& limit : step.limits) CheckLimit(limit, readings);
}

void FindCommand(Step& step, const json& description) {
  const std::string words = TextAt(description, "command");
  step.operation = FindOperation(words);
  if (step.operation == nullptr) {
    std::vector<std::string> known;
    for (const Operation& operation : Operations()) known.push_back(operation.words);
    throw PlanError(fmt::format("there is no command \"{}\"{}", words, posix::DidYouMean(words, known)));
  }
  if (!step.operation->in_plans) throw PlanError(fmt::format("\"{}\" needs a person at a terminal", words));
  if (step.name.empty()) step.name = words;
}

void ParseCommand(Step& step, const json& description, bool shown) {
  ParseArguments(step, description.value("arguments", json::object()));
  const json limits = LimitsOf(description);
  for (const auto& [reading, limit] : limits.items()) step.limits.push_back(ParseLimit(reading, limit));
  if (!shown || !IsOpen(description)) CheckCommand(step);
}

// The names of a skipped step's limits. Its values may be missing.
void CheckReadingNames(Step& step, const json& description) {
  ParseArguments(step, description.value("arguments", json::object()));
  const json limits = LimitsOf(description);
  try {
    const std::vector<ReadingKind> readings = LimitableReadings(*step.operation, step.arguments);
    for (const auto& [reading, limit] : limits.items()) FindReading(reading, readings);
  } catch (const UsageError&) {
    // Which readings there are depends on an argument that has no value.
  }
}

void ParseProgram(Step& step, const json& description) {
  if (!description["program"].is_array()) throw PlanError("\"program\" is not a list of texts");
  for (const json& word : description["program"]) {
    if (!word.is_string()) throw PlanError("\"program\" is not a list of texts");
    step.program.push_back(word);
  }
  if (step.program.empty() || step.program.front().empty()) throw PlanError("\"program\" names no program");
  step.background = YesOrNo(description, "background", false);
  step.time_limit = Seconds(description, "seconds", 60);
  if (step.name.empty()) step.name = step.program.front();
}

// Finds out what kind of step it is; the keys must be those of its kind.
Step::Kind KindOf(const json& description) {
  using Keys = std::set<std::string, std::less<>>;
  const struct {
    Step::Kind kind;
    const char* key;
    Keys keys;
  } kinds[] = {{Step::Kind::Command, "command", {"command", "arguments", "limits"}},
               {Step::Kind::Wait, "wait", {"wait"}},
               {Step::Kind::Question, "question", {"question", "seconds"}},
               {Step::Kind::Program, "program", {"program", "background", "seconds"}}};
  for (const auto& [kind, key, keys] : kinds) {
    if (!description.contains(key)) continue;
    Keys known = COMMON_KEYS;
    known.insert(keys.begin(), keys.end());
    CheckKeys(description, known);
    return kind;
  }
  throw PlanError("a step needs a \"command\", \"wait\", \"question\" or \"program\"");
}

void ParseWork(Step& step, const json& description, bool shown) {
  switch (step.kind) {
    case Step::Kind::Command:
      ParseCommand(step, description, shown);
      break;
    case Step::Kind::Wait:
      step.wait = Seconds(description, "wait", 0);
      if (step.name.empty()) step.name = "wait";
      break;
    case Step::Kind::Question:
      step.question = TextAt(description, "question");
      step.time_limit = Seconds(description, "seconds", 600);
      if (step.name.empty()) step.name = step.question;
      break;
    case Step::Kind::Program:
      ParseProgram(step, description);
      break;
  }
}

struct StepRules {
  bool stops;  // a failure ends the plan, if the step does not say
  bool shown;  // variables may stand as ${name} in it
};

Step ParseStep(const json& description, const StepRules& rules) {
  if (!description.is_object()) throw PlanError("a step must be an object");
  Step step;
  step.name = TextAt(description, "name");
  step.kind = KindOf(description);
  if (step.kind == Step::Kind::Command) FindCommand(step, description);
  step.wanted = !description.contains("if") || !TextAt(description, "if").empty();
  // The rest of a skipped step may be wrong because a value is missing, which is why it is skipped.
  if (!step.wanted) {
    if (step.kind == Step::Kind::Command) CheckReadingNames(step, description);
    return step;
  }
  ParseWork(step, description, rules.shown);
  step.picture = TextAt(description, "picture");
  step.retries = Count(description, "retries", 0, 0);
  step.retry_wait = Seconds(description, "retry-wait", 1);
  step.repeat = Count(description, "repeat", 1, 1);
  step.stops = StopsOnFailure(description, rules.stops);
  step.always = YesOrNo(description, "always", false);
  return step;
}

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
