// What a phone said about itself while a plan ran.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "station/plan/runner.h"

namespace station {

struct PhoneFacts {
  std::string identity;                                       // the last one read; empty if none was
  std::vector<std::pair<std::string, std::string>> versions;  // "system", "configuration", "resources"
};

PhoneFacts FactsOfPhone(const PlanResult& result);

}  // namespace station
