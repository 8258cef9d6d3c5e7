#include "station/plan/variable_checks.h"

#include <fmt/format.h>
#include <re2/re2.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "station/commands/check_digit.h"
#include "station/commands/errors.h"
#include "station/plan/limit.h"

namespace station {

namespace {

using nlohmann::json;

std::size_t NeedCount(const char* key, const json& wanted) {
  constexpr std::size_t MOST = 1u << 30;
  if (wanted.is_number_unsigned() && wanted <= MOST) return wanted;
  throw PlanError(fmt::format("\"{}\": {} is not a whole number", key, wanted.dump()));
}

std::string DigitsFault(const json& wanted, const std::string& value) {
  const std::size_t count = NeedCount("digits", wanted);
  const bool digits = std::ranges::all_of(value, [](char c) { return c >= '0' && c <= '9'; });
  return digits && value.size() == count ? "" : fmt::format("it is not a number of {} digits", count);
}

std::string LuhnFault(const json& wanted, const std::string& value) {
  if (!wanted.is_boolean()) throw PlanError("\"luhn\" must be true or false");
  return wanted == json(true) ? CheckDigitFault(value) : "";
}

std::string PatternFault(const json& wanted, const std::string& value) {
  if (!wanted.is_string()) throw PlanError("\"pattern\" is not a text");
  const re2::RE2 pattern(wanted.get<std::string>(), re2::RE2::Quiet);
  if (!pattern.ok()) throw PlanError(fmt::format("\"pattern\": {}", pattern.error()));
  if (re2::RE2::FullMatch(value, pattern)) return "";
  return fmt::format("it does not match {} as a whole", wanted.get<std::string>());
}

// The plan's words for what the pattern means.
std::string WordsFault(const json& declaration) {
  const json words = declaration.value(PATTERN_HELP, json(""));
  if (!words.is_string()) throw PlanError(fmt::format("\"{}\" is not a text", PATTERN_HELP));
  return words == json("") ? "" : fmt::format("it must be {}", words.get<std::string>());
}

std::string Refused(const json& wanted, const std::string& value) {
  for (const json& one : wanted.is_array() ? wanted : json::array({wanted})) {
    if (!one.is_string()) throw PlanError("\"differs\" is not a text or a list of texts");
    const auto same = [](char a, char b) { return std::toupper(a) == std::toupper(b); };
    if (std::ranges::equal(one.get<std::string>(), value, same)) return "this value is refused";
  }
  return "";
}

std::string FileSizeFault(const json& wanted, const std::string& value) {
  const std::size_t size = NeedCount("file-size", wanted);
  std::error_code error;
  const std::uintmax_t found = std::filesystem::file_size(value, error);
  if (error) return "the file cannot be read: " + error.message();
  return found == size ? "" : fmt::format("the file holds {} bytes instead of {}", found, size);
}

std::string BoundFault(const char* key, const json& wanted, const std::string& value) {
  const Limit limit = ParseLimit(key, {{key, wanted}});
  const auto number = AsNumber(value);
  if (!number) return "it is not a number";
  if (limit.minimum && *number < *limit.minimum) return fmt::format("it is below {}", *limit.minimum);
  if (limit.maximum && *number > *limit.maximum) return fmt::format("it is above {}", *limit.maximum);
  return "";
}

// In the order in which they are tried: the first fault is the one to tell.
constexpr struct {
  const char* key;
  std::string (*fault)(const json& wanted, const std::string& value);
} CHECKS[] = {
    {"digits", DigitsFault},
    {"luhn", LuhnFault},
    {"pattern", PatternFault},
    {"differs", Refused},
    {"minimum",
     [](const json& wanted, const std::string& value) { return BoundFault("minimum", wanted, value); }},
    {"maximum",
     [](const json& wanted, const std::string& value) { return BoundFault("maximum", wanted, value); }},
    {"file-size", FileSizeFault},
};

}  // namespace

bool IsVariableCheck(const std::string& key) {
  return key == PATTERN_HELP ||
         std::ranges::any_of(CHECKS, [&](const auto& check) { return key == check.key; });
}

std::string VariableFault(const json& declaration, const std::string& value) {
  std::string first;
  for (const auto& [key, fault] : CHECKS) {
    if (!declaration.contains(key)) continue;
    std::string one = fault(declaration[key], value);
    const std::string words = std::string_view(key) == "pattern" ? WordsFault(declaration) : "";
    if (!one.empty() && !words.empty()) one = words;
    if (first.empty()) first = one;
  }
  return first;
}

}  // namespace station
