#include "station/plan/limit.h"

#include <fmt/format.h>

#include <charconv>

#include "station/commands/errors.h"

namespace station {

namespace {

using nlohmann::json;

// Numbers may be written as text, so that they can be hexadecimal or come from a variable.
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

double NeedNumber(const std::string& reading, const json& value) {
  const auto number = AsNumber(value);
  if (!number) throw PlanError(fmt::format("limit on \"{}\": {} is no number", reading, value.dump()));
  return *number;
}

std::string AsText(const json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

bool Equal(const json& wanted, const json& value) {
  // As numbers where the phone's value is one: "0x10" and 16 are then the same.
  if (value.is_number()) {
    const auto number = AsNumber(wanted);
    return number && *number == value.get<double>();
  }
  if (value.is_boolean() && wanted.is_string()) return wanted == (value.get<bool>() ? "true" : "false");
  return wanted == value;
}

}  // namespace

Limit ParseLimit(const std::string& reading, const json& description) {
  Limit limit;
  limit.reading = reading;
  if (!description.is_object() || description.empty()) {
    throw PlanError(fmt::format("limit on \"{}\": give equals, minimum, maximum, mask or pattern", reading));
  }
  for (const auto& [key, value] : description.items()) {
    if (key == "equals") {
      limit.equals = value;
    } else if (key == "minimum") {
      limit.minimum = NeedNumber(reading, value);
    } else if (key == "maximum") {
      limit.maximum = NeedNumber(reading, value);
    } else if (key == "mask") {
      limit.mask = static_cast<std::uint64_t>(NeedNumber(reading, value));
    } else if (key == "pattern" && value.is_string()) {
      limit.pattern = value;
    } else {
      throw PlanError(fmt::format("limit on \"{}\": there is no \"{}\"", reading, key));
    }
  }
  if (limit.mask && !limit.equals)
    throw PlanError(fmt::format("limit on \"{}\": a mask needs equals", reading));
  if (limit.pattern.empty()) return limit;
  try {
    limit.expression = std::regex(limit.pattern);
  } catch (const std::regex_error& error) {
    throw PlanError(fmt::format("limit on \"{}\": pattern \"{}\": {}", reading, limit.pattern, error.what()));
  }
  return limit;
}

std::string JudgeLimit(const Limit& limit, const json& value) {
  const std::string is = fmt::format("{} is {}", limit.reading, AsText(value));
  if (limit.mask || limit.minimum || limit.maximum) {
    if (!value.is_number()) {
      throw PlanError(fmt::format("limit on \"{}\": its value {} is no number", limit.reading, value.dump()));
    }
  }
  if (limit.mask) {
    const auto masked = static_cast<std::uint64_t>(value.get<std::int64_t>()) & *limit.mask;
    if (Equal(*limit.equals, masked)) return "";
    return fmt::format("{}, under mask 0x{:X} it is 0x{:X} where {} is wanted", is, *limit.mask, masked,
                       AsText(*limit.equals));
  }
  if (limit.equals && !Equal(*limit.equals, value)) {
    return fmt::format("{} where {} is wanted", is, AsText(*limit.equals));
  }
  if (limit.minimum && value.get<double>() < *limit.minimum) {
    return fmt::format("{}, below {}", is, *limit.minimum);
  }
  if (limit.maximum && value.get<double>() > *limit.maximum) {
    return fmt::format("{}, above {}", is, *limit.maximum);
  }
  if (limit.expression && !std::regex_search(AsText(value), *limit.expression)) {
    return fmt::format("{}, which does not match {}", is, limit.pattern);
  }
  return "";
}

}  // namespace station
