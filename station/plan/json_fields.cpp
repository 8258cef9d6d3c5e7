#include "station/plan/json_fields.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>

#include "posix/nearest_words.h"
#include "station/commands/errors.h"

namespace station {

using nlohmann::json;

std::chrono::milliseconds Seconds(const json& object, const std::string& key, double fallback) {
  constexpr double LONGEST = 24 * 3600;
  const json value = object.value(key, json(fallback));
  double seconds = -1;
  if (value.is_number()) seconds = value;
  if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error != std::errc() || end != text.data() + text.size()) seconds = -1;
  }
  if (!(seconds >= 0 && seconds <= LONGEST)) {
    throw PlanError(fmt::format("\"{}\": {} is not a time in seconds from 0 to 86400", key, value.dump()));
  }
  return std::chrono::milliseconds(std::lround(seconds * 1000));
}

int Count(const json& object, const std::string& key, int fallback, int least) {
  constexpr int MOST = 1'000'000;
  const json value = object.value(key, json(fallback));
  if (!value.is_number_integer() || value < least || value > MOST) {
    throw PlanError(
        fmt::format("\"{}\": {} is not a whole number from {} to {}", key, value.dump(), least, MOST));
  }
  return value;
}

bool YesOrNo(const json& object, const std::string& key, bool fallback) {
  const json value = object.value(key, json(fallback));
  if (!value.is_boolean()) throw PlanError(fmt::format("\"{}\" must be true or false", key));
  return value;
}

std::string TextAt(const json& object, const std::string& key, const std::string& fallback) {
  const json value = object.value(key, json(fallback));
  if (!value.is_string()) throw PlanError(fmt::format("\"{}\" is not a text", key));
  return value;
}

void CheckKeys(const json& object, const FieldNames& known) {
  for (const auto& [key, value] : object.items()) {
    if (!known.contains(key))
      throw PlanError(
          fmt::format("unknown key \"{}\"{}", key, posix::DidYouMean(key, {known.begin(), known.end()})));
  }
}

}  // namespace station
