// The plan's rules for a test line, when a phone is tested from the command line.
#pragma once

#include <string>

#include "station/tool/run_plan.h"

namespace station {

// The serial number that the phone is known by, from the plan's variable for it; empty if it has none.
std::string SerialOf(const PlanOrder& order);

// Throws PlanError if the plan's rules do not let this phone be tested: it has not passed a required plan, or
// has passed this one and no reason for another test is given. Of a file that is no plan, nothing is said.
void CheckLineRules(const PlanOrder& order);

}  // namespace station
