#include "station/line/line_settings.h"

#include <fmt/format.h>

#include <algorithm>

#include "station/commands/clean_text.h"
#include "station/line/scan.h"

namespace station {

std::map<std::string, std::string> LineSettings::All() const {
  const std::lock_guard lock(mutex_);
  return values_;
}

std::string LineSettings::Set(const std::string& name, const std::string& value) {
  const auto variable = std::ranges::find(plan_.variables, name, &PlanVariable::name);
  if (variable == plan_.variables.end() || !std::ranges::count(plan_.line.settings, name))
    return fmt::format("The plan does not let “{}” be set here.", CleanText(name));
  if (!value.empty() && !IsLabelText(value))
    return "The value is too long, or has characters that no label has.";
  const std::string fault = value.empty() ? "" : WrongValue(name, variable->declaration, value);
  if (!fault.empty()) return fault + ".";
  const std::lock_guard lock(mutex_);
  if (value.empty())
    values_.erase(name);
  else
    values_[name] = value;
  return "";
}

}  // namespace station
