// Variables of a test plan: ${name} in any text of it stands for the variable's value, "$${" for a plain
// "${".
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace station {

using Variables = std::vector<std::pair<std::string, std::string>>;

// The plan's variables with what the caller gave them, else their defaults. Throws PlanError for one that has
// neither, and for a given one that the plan does not know.
Variables SettleVariables(const nlohmann::json& declared, const std::map<std::string, std::string>& given);

// Replaces in every text below `value`. Throws PlanError for an unknown variable.
void Substitute(nlohmann::json& value, const Variables& variables);

}  // namespace station
