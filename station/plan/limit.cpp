#include "station/plan/limit.h"

#include <fmt/format.h>
#include <re2/re2.h>

#include <algorithm>
#include <charconv>

#include "posix/nearest_words.h"
#include "station/commands/check_digit.h"
#include "station/commands/errors.h"
#include "station/plan/variable_checks.h"

namespace station {

namespace {

using nlohmann::json;

double NeedNumber(const std::string& reading, const json& value) {
  const auto number = AsNumber(value);
  if (!number) throw PlanError(fmt::format("limit on \"{}\": {} is not a number", reading, value.dump()));
  return *number;
}

std::uint64_t NeedMask(const std::string& reading, const json& value) {
  const double number = NeedNumber(reading, value);
  if (number >= 0 && number <= UINT32_MAX) return static_cast<std::uint64_t>(number);
  throw PlanError(fmt::format("limit on \"{}\": {} is not a mask of 32 bits", reading, value.dump()));
}

std::string AsText(const json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

bool Equal(const json& wanted, const json& value) {
  // If the value is a number, both are compared as numbers: "0x10" equals 16.
  if (value.is_number()) {
    const auto number = AsNumber(wanted);
    return number && *number == value.get<double>();
  }
  if (value.is_boolean() && wanted.is_string()) return wanted == (value.get<bool>() ? "true" : "false");
  return wanted == value;
}

}  // namespace

std::optional<double> AsNumber(const json& value) {
  if (value.is_number()) return value.get<double>();
  if (!value.is_string()) return std::nullopt;
  std::string_view text = value.get_ref<const std::string&>();
  const char* end = text.data() + text.size();
  if (text.starts_with("0x")) {
    std::uint64_t number = 0;
    const auto parsed = std::from_chars(text.data() + 2, end, number, 16);
    if (parsed.ec == std::errc{} && parsed.ptr == end) return static_cast<double>(number);
    return std::nullopt;
  }
  double number = 0;
  const auto parsed = std::from_chars(text.data(), end, number);
  if (parsed.ec == std::errc{} && parsed.ptr == end) return number;
  return std::nullopt;
}

Limit ParseLimit(const std::string& reading, const json& description) {
  Limit limit;
  limit.reading = reading;
  limit.stated = description;
  if (!description.is_object() || description.empty()) {
    throw PlanError(fmt::format(
        "limit on \"{}\": it needs equals, differs, minimum, maximum, mask, luhn or pattern", reading));
  }
  for (const auto& [key, value] : description.items()) {
    if (key == "equals") {
      limit.equals = value;
    } else if (key == "differs") {
      limit.differs = value;
    } else if (key == "minimum") {
      limit.minimum = NeedNumber(reading, value);
    } else if (key == "maximum") {
      limit.maximum = NeedNumber(reading, value);
    } else if (key == "mask") {
      limit.mask = NeedMask(reading, value);
    } else if (key == "luhn" && value.is_boolean()) {
      limit.luhn = value;
    } else if (key == "pattern" && value.is_string()) {
      limit.pattern = value;
    } else if (key == PATTERN_HELP && value.is_string()) {
      limit.pattern_help = value;
    } else {
      throw PlanError(fmt::format("limit on \"{}\": unknown key \"{}\"{}", reading, key,
                                  posix::DidYouMean(key, {"equals", "differs", "minimum", "maximum", "mask",
                                                          "luhn", "pattern", PATTERN_HELP})));
    }
  }
  if (limit.mask && !limit.equals)
    throw PlanError(fmt::format("limit on \"{}\": a mask needs equals", reading));
  if (limit.minimum && limit.maximum && *limit.minimum > *limit.maximum) {
    throw PlanError(fmt::format("limit on \"{}\": the minimum {} is above the maximum {}", reading,
                                *limit.minimum, *limit.maximum));
  }
  if (limit.pattern.empty() && !limit.pattern_help.empty())
    throw PlanError(fmt::format("limit on \"{}\": \"{}\" needs a pattern", reading, PATTERN_HELP));
  if (limit.pattern.empty()) return limit;
  // This library's time and memory are bounded for every pattern.
  limit.expression = std::make_shared<re2::RE2>(limit.pattern, re2::RE2::Quiet);
  if (!limit.expression->ok()) {
    throw PlanError(fmt::format("limit on \"{}\": pattern \"{}\": {}", reading, limit.pattern,
                                limit.expression->error()));
  }
  return limit;
}

const ReadingKind& FindReading(const std::string& name, const std::vector<ReadingKind>& readings) {
  const auto reading = std::ranges::find(readings, name, &ReadingKind::name);
  if (reading != readings.end()) return *reading;
  std::vector<std::string> names;
  for (const ReadingKind& kind : readings) names.push_back(kind.name);
  const std::string known =
      names.empty() ? "it reads nothing" : fmt::format("it reads {}", fmt::join(names, ", "));
  throw PlanError(fmt::format("limit on \"{}\": the command has no such reading; {}", name, known));
}

void CheckLimit(const Limit& limit, const std::vector<ReadingKind>& readings) {
  const bool number = FindReading(limit.reading, readings).value == ReadingKind::Value::Number;
  if (!number && (limit.minimum || limit.maximum || limit.mask))
    throw PlanError(fmt::format("limit on \"{}\": it is not a number", limit.reading));
  for (const auto& value : {limit.equals, limit.differs}) {
    if (!number || !value || AsNumber(*value)) continue;
    throw PlanError(
        fmt::format("limit on \"{}\": it is a number, but {} is not", limit.reading, value->dump()));
  }
}

std::string LimitText(const Limit& limit) {
  std::vector<std::string> parts;
  const std::string masked = limit.mask ? fmt::format("under mask 0x{:X} ", *limit.mask) : "";
  if (limit.equals) parts.push_back(fmt::format("{}equal to {}", masked, AsText(*limit.equals)));
  if (limit.differs) parts.push_back("not " + AsText(*limit.differs));
  if (limit.minimum) parts.push_back(fmt::format("at least {}", *limit.minimum));
  if (limit.maximum) parts.push_back(fmt::format("at most {}", *limit.maximum));
  if (limit.luhn) parts.push_back("with a right check digit");
  if (limit.expression)
    parts.push_back(limit.pattern_help.empty() ? "matches " + limit.pattern : limit.pattern_help);
  return fmt::format("{}", fmt::join(parts, ", "));
}

std::string JudgeLimit(const Limit& limit, const json& value) {
  const std::string text = AsText(value);
  const std::string is = fmt::format("{} is {}", limit.reading, text.empty() ? "empty" : text);
  if (limit.mask || limit.minimum || limit.maximum) {
    if (!value.is_number()) {
      throw PlanError(
          fmt::format("limit on \"{}\": its value {} is not a number", limit.reading, value.dump()));
    }
  }
  if (limit.mask) {
    if (!value.is_number_integer()) {
      throw PlanError(
          fmt::format("limit on \"{}\": its value {} is not a whole number", limit.reading, value.dump()));
    }
    const auto masked = static_cast<std::uint64_t>(value.get<std::int64_t>()) & *limit.mask;
    if (Equal(*limit.equals, masked)) return "";
    return fmt::format("{}, under mask 0x{:X} it is 0x{:X} instead of {}", is, *limit.mask, masked,
                       AsText(*limit.equals));
  }
  if (limit.equals && !Equal(*limit.equals, value)) {
    return fmt::format("{} instead of {}", is, AsText(*limit.equals));
  }
  if (limit.differs && Equal(*limit.differs, value)) return is + ", which is refused";
  if (limit.minimum && value.get<double>() < *limit.minimum) {
    return fmt::format("{}, below {}", is, *limit.minimum);
  }
  if (limit.maximum && value.get<double>() > *limit.maximum) {
    return fmt::format("{}, above {}", is, *limit.maximum);
  }
  if (const std::string fault = limit.luhn ? CheckDigitFault(AsText(value)) : ""; !fault.empty())
    return fmt::format("{}: {}", is, fault);
  if (limit.expression && !re2::RE2::PartialMatch(AsText(value), *limit.expression)) {
    if (!limit.pattern_help.empty()) return fmt::format("{} instead of {}", is, limit.pattern_help);
    return fmt::format("{}, which does not match {}", is, limit.pattern);
  }
  return "";
}

}  // namespace station
