// Variables of a test plan: ${name} in any text of it stands for the variable's value, and "$${" for "${".
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace station {

using Variables = std::vector<std::pair<std::string, std::string>>;

struct SettledVariables {
  Variables values;
  std::vector<std::string> mistakes = {};
  std::vector<std::string> wrong = {};  // the variables that have no right value
};

// The plan's variables with the values from the caller or their defaults. A variable that has neither or a
// value that breaks its checks, and a value whose variable the plan does not know, are mistakes. With
// `shown`, a variable without a value has its own mark, ${name}, as value. Throws PlanError.
SettledVariables SettleVariables(const nlohmann::json& declared,
                                 const std::map<std::string, std::string>& given, bool shown);

// Whether a step with this condition, whose value is empty, leaves a gap in the test: only a variable that is
// declared optional may be left empty. The condition is as the plan has it.
bool IsMissed(const std::string& condition, const nlohmann::json& declared);

// Replaces variables in every text of `value`. Throws PlanError for an unknown variable.
void Substitute(nlohmann::json& value, const Variables& variables);

}  // namespace station
