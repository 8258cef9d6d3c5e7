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
  std::vector<std::string> later = {};  // those that have ${name} as value until the plan runs
};

// What a plan is loaded for. Numbers that it draws have no value yet when it is only checked; when it is
// shown, each variable without a value has its own mark, ${name}, as value.
enum class PlanUse { Run, Check, Show };

// The plan's variables with the values from the caller or their defaults. A variable that has neither or a
// value that breaks its checks, and a value whose variable the plan does not know, are mistakes. Throws
// PlanError.
SettledVariables SettleVariables(const nlohmann::json& declared,
                                 const std::map<std::string, std::string>& given, PlanUse use);

// Whether a step with this condition, whose value is empty, leaves a gap in the test: only a variable that is
// declared optional may be left empty. The condition is as the plan has it.
bool IsMissed(const std::string& condition, const nlohmann::json& declared);

// Replaces variables in every text of `value`. Throws PlanError for an unknown variable.
void Substitute(nlohmann::json& value, const Variables& variables);

}  // namespace station
