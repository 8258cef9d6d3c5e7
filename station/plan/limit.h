// A limit of a test plan on one reading of an operation.
#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "station/commands/answer.h"

namespace re2 {
class RE2;
}

namespace station {

struct Limit {
  std::string reading;
  nlohmann::json stated;  // as the plan has it
  std::optional<nlohmann::json> equals;
  std::optional<nlohmann::json> differs;  // a value that is refused
  std::optional<double> minimum;
  std::optional<double> maximum;
  std::optional<std::uint64_t> mask;  // applied before the comparison
  bool luhn = false;                  // the last digit must be the check digit
  std::string pattern;
  std::string pattern_help;                    // what a value is that fits it, in words; may be empty
  std::shared_ptr<const re2::RE2> expression;  // the pattern, compiled
};

// Throws PlanError.
Limit ParseLimit(const std::string& reading, const nlohmann::json& description);

// The kind of reading that the limit is about. Throws PlanError if there is none of this name.
const ReadingKind& FindReading(const std::string& name, const std::vector<ReadingKind>& readings);

// Throws PlanError if there is no such reading, or none of its kind can ever keep the limit.
void CheckLimit(const Limit& limit, const std::vector<ReadingKind>& readings);

// A number, which may be written as text, also hexadecimal ("0x10").
std::optional<double> AsNumber(const nlohmann::json& value);

// "at least 40960, at most 50000".
std::string LimitText(const Limit& limit);

// Returns what is wrong with the value, or nothing if it is within the limit. Throws PlanError if the limit
// does not fit such a value.
std::string JudgeLimit(const Limit& limit, const nlohmann::json& value);

}  // namespace station
