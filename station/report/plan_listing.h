// What a plan would do: its steps with their limits.
#pragma once

#include <string>

#include "station/plan/plan.h"

namespace station {

// For a person at a terminal.
std::string PlanText(const Plan& plan);

// An object with a list of steps. What a step that is not wanted would do is left out.
std::string PlanJson(const Plan& plan);

}  // namespace station
