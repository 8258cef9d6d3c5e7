// Makes a step of a plan from its JSON object.
#pragma once

#include <nlohmann/json.hpp>

#include "station/plan/plan.h"

namespace station {

struct StepRules {
  bool stops;  // a failure ends the plan, if the step does not say
  bool shown;  // variables may stand as ${name} in it
};

// What "on-failure" of a step or of the plan says.
bool StopsOnFailure(const nlohmann::json& holder, bool fallback);

// The variables' values stand in the description already. Throws PlanError and UsageError.
Step ParseStep(const nlohmann::json& description, const StepRules& rules);

}  // namespace station
