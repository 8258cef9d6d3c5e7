#include "station/plan/variables.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "posix/nearest_words.h"
#include "station/commands/errors.h"
#include "station/plan/variable_checks.h"

namespace station {

namespace {

using nlohmann::json;

std::string ValueOf(const std::string& name, const Variables& variables) {
  const auto found = std::ranges::find(variables, name, &Variables::value_type::first);
  if (found == variables.end()) throw PlanError(fmt::format("there is no variable \"{}\"", name));
  return found->second;
}

std::string Replaced(const std::string& text, const Variables& variables) {
  std::string result;
  std::size_t from = 0;
  for (;;) {
    const std::size_t start = text.find("${", from);
    const std::size_t end = start == std::string::npos ? start : text.find('}', start);
    if (end == std::string::npos) return result + text.substr(from);
    // "$${" stands for "${", which a shell command may need.
    if (start > from && text[start - 1] == '$') {
      result += text.substr(from, start - from) + "{";
      from = start + 2;
      continue;
    }
    result += text.substr(from, start - from) + ValueOf(text.substr(start + 2, end - start - 2), variables);
    from = end + 1;
  }
}

bool IsTrue(const std::string& name, const json& declaration, const char* key) {
  const json value = declaration.value(key, json(false));
  if (!value.is_boolean()) {
    throw PlanError(fmt::format("variable \"{}\": \"{}\" must be true or false", name, key));
  }
  return value;
}

void CheckDeclaration(const std::string& name, const json& declaration) {
  constexpr std::string_view KNOWN[] = {"help", "default", "required", "optional", "draw"};
  if (!declaration.is_object()) throw PlanError(fmt::format("variable \"{}\" is not an object", name));
  for (const auto& [key, value] : declaration.items()) {
    if (std::ranges::find(KNOWN, key) == std::end(KNOWN) && !IsVariableCheck(key)) {
      throw PlanError(fmt::format("variable \"{}\": unknown key \"{}\"{}", name, key,
                                  posix::DidYouMean(key, {std::begin(KNOWN), std::end(KNOWN)})));
    }
  }
  IsTrue(name, declaration, "optional");
  const json pool = declaration.value("draw", json("pool"));
  if (!pool.is_string() || pool == json(""))
    throw PlanError(fmt::format("variable \"{}\": \"draw\" must be the name of a pool of numbers", name));
}

// A phone has one number of a pool, so a second variable would get the same.
void CheckPool(const std::string& name, const json& declaration, std::set<std::string>& pools) {
  if (!declaration.is_object() || !declaration.contains("draw") || !declaration["draw"].is_string()) return;
  const std::string pool = declaration["draw"];
  if (!pools.insert(pool).second)
    throw PlanError(fmt::format("variable \"{}\": another variable draws from \"{}\" too", name, pool));
}

// Its value is known when the plan runs.
bool IsDrawnLater(const json& declaration, PlanUse use, bool given) {
  return use == PlanUse::Check && !given && declaration.is_object() && declaration.contains("draw");
}

void CheckValue(const std::string& name, const json& declaration, const std::string& value) {
  std::string fault;
  try {
    fault = VariableFault(declaration, value);
  } catch (const PlanError& error) {
    throw PlanError(fmt::format("variable \"{}\": {}", name, error.what()));
  }
  if (!fault.empty()) throw PlanError(fmt::format("variable \"{}\": {}: {}", name, value, fault));
}

std::string Settled(const std::string& name, const json& declaration,
                    const std::map<std::string, std::string>& given, bool shown) {
  CheckDeclaration(name, declaration);
  const auto found = given.find(name);
  const json fallback = declaration.value("default", json());
  if (found != given.end() || !fallback.is_null()) {
    std::string value = found != given.end()   ? found->second
                        : fallback.is_string() ? fallback.get<std::string>()
                                               : fallback.dump();
    if (!value.empty()) CheckValue(name, declaration, value);
    if (!value.empty() || !IsTrue(name, declaration, "required")) return value;
  }
  if (shown) return "${" + name + "}";
  const std::string help = declaration.value("help", "");
  throw PlanError(fmt::format("variable \"{0}\" is not set: give --set {0}=VALUE{1}{2}", name,
                              help.empty() ? "" : ", ", help));
}

}  // namespace

SettledVariables SettleVariables(const json& declared, const std::map<std::string, std::string>& given,
                                 PlanUse use) {
  if (!declared.is_object()) throw PlanError("\"variables\" is not an object");
  SettledVariables settled;
  std::set<std::string> pools;
  for (const auto& [name, declaration] : declared.items()) {
    try {
      CheckPool(name, declaration, pools);
      const bool later = IsDrawnLater(declaration, use, given.contains(name));
      settled.values.emplace_back(name, Settled(name, declaration, given, use == PlanUse::Show || later));
      if (later) settled.later.push_back(name);
    } catch (const std::exception& error) {
      settled.mistakes.emplace_back(error.what());
      settled.wrong.push_back(name);
    }
  }
  for (const auto& [name, value] : given) {
    if (declared.contains(name)) continue;
    std::vector<std::string> known;
    for (const auto& [each, declaration] : declared.items()) known.push_back(each);
    settled.mistakes.push_back(
        fmt::format("the plan has no variable \"{}\"{}", name, posix::DidYouMean(name, known)));
  }
  return settled;
}

bool IsMissed(const std::string& condition, const json& declared) {
  for (const auto& [name, declaration] : declared.items()) {
    const bool optional = declaration.is_object() && declaration.value("optional", json(false)) == json(true);
    if (optional && condition.find("${" + name + "}") != std::string::npos) return false;
  }
  return !condition.empty();
}

void Substitute(json& value, const Variables& variables) {
  if (value.is_string()) value = Replaced(value.get<std::string>(), variables);
  if (!value.is_structured()) return;
  for (json& part : value) Substitute(part, variables);
}

}  // namespace station
