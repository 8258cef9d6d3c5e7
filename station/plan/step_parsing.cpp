#include "station/plan/step_parsing.h"

#include <fmt/format.h>

#include "posix/nearest_words.h"
#include "station/commands/errors.h"
#include "station/plan/json_fields.h"

namespace station {

namespace {

using nlohmann::json;

// The keys that every kind of step may have.
const FieldNames COMMON_KEYS = {"name",       "if",     "retries", "retry-wait",
                                "on-failure", "always", "picture", "repeat"};

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
  const struct {
    Step::Kind kind;
    const char* key;
    FieldNames keys;
  } kinds[] = {{Step::Kind::Command, "command", {"command", "arguments", "limits"}},
               {Step::Kind::Wait, "wait", {"wait"}},
               {Step::Kind::Question, "question", {"question", "seconds"}},
               {Step::Kind::Program, "program", {"program", "background", "seconds"}}};
  for (const auto& [kind, key, keys] : kinds) {
    if (!description.contains(key)) continue;
    FieldNames known = COMMON_KEYS;
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

}  // namespace

bool StopsOnFailure(const json& holder, bool fallback) {
  const std::string choice = TextAt(holder, "on-failure");
  if (choice.empty()) return fallback;
  if (choice != "stop" && choice != "continue")
    throw PlanError("\"on-failure\" must be \"stop\" or \"continue\"");
  return choice == "stop";
}

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

}  // namespace station
