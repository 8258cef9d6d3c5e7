// Whether a phone may be tested here: it must have passed the plans of the stations before.
#pragma once

#include <string>

#include "station/line/line_store.h"
#include "station/plan/outline.h"

namespace station {

// Returns why the phone is refused, in a sentence, or nothing.
std::string CheckRoute(const LineRules& rules, const std::string& serial, const PastRuns& past);

// Whether the phone's newest run of the plan passed. False if the database cannot be asked.
bool HasPassed(const std::string& plan, const std::string& serial, const PastRuns& past);

}  // namespace station
