// A limit of a test plan on one thing that an operation reads.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <string>

namespace station {

struct Limit {
  std::string reading;
  std::optional<nlohmann::json> equals;
  std::optional<double> minimum;
  std::optional<double> maximum;
  std::optional<std::uint64_t> mask;  // applied before the comparison
  std::string pattern;
  std::optional<std::regex> expression;  // the pattern, ready to be searched for
};

// Throws PlanError.
Limit ParseLimit(const std::string& reading, const nlohmann::json& description);

// Empty when the value keeps the limit, else what is wrong with it. Throws PlanError when the limit cannot be
// applied to such a value.
std::string JudgeLimit(const Limit& limit, const nlohmann::json& value);

}  // namespace station
