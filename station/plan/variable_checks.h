// Checks that a plan declares for the values of its variables, so that a wrong value is found before the
// phone is touched.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace station {

// What a value that fits the declaration's "pattern" is, in words: "black or white".
constexpr const char* PATTERN_HELP = "pattern-help";

// The declaration has this key, and it is a check.
bool IsVariableCheck(const std::string& key);

// What is wrong with the value after all checks of the variable's declaration; empty if nothing is. Throws
// PlanError if a check itself is wrong.
std::string VariableFault(const nlohmann::json& declaration, const std::string& value);

}  // namespace station
