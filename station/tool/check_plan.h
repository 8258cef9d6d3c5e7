// Looks at a plan without a phone: are there mistakes in it, and what would it do?
#pragma once

#include <map>
#include <string>

#include "station/commands/errors.h"

namespace station {

struct PlanQuestion {
  std::string plan_file;
  std::map<std::string, std::string> variables;
  std::string port;  // ${port} in the steps' texts; may be empty
  bool json = false;
};

// Tells all mistakes, or that there is none. Throws PlanError.
ExitStatus CheckPlan(const PlanQuestion& question);

// Tells the steps with their limits; variables need no value. Throws PlanError.
ExitStatus ListPlan(const PlanQuestion& question);

}  // namespace station
