#include "station/report/phone_facts.h"

#include <algorithm>

namespace station {

PhoneFacts FactsOfPhone(const PlanResult& result) {
  constexpr std::string_view ONE_VERSION = "version ";
  PhoneFacts facts;
  const auto keep = [&](const std::string& name, const std::string& text) {
    const auto known = std::ranges::find(facts.versions, name, &std::pair<std::string, std::string>::first);
    if (known == facts.versions.end()) {
      facts.versions.emplace_back(name, text);
    } else {
      known->second = text;
    }
  };
  for (const StepResult& step : result.steps) {
    for (const Reading& reading : step.readings) {
      if (step.operation == "identity read" && reading.name == "identity") facts.identity = reading.text;
      if (step.operation == "versions") keep(reading.name, reading.text);
      if (step.operation.starts_with(ONE_VERSION) && reading.name == "version")
        keep(step.operation.substr(ONE_VERSION.size()), reading.text);
    }
  }
  return facts;
}

}  // namespace station
