// Where a plan is looked for.
#pragma once

#include <string>
#include <vector>

namespace station {

// The file of a plan that a person names: the file itself, NAME.json in the current folder, or an installed
// plan NAME or NAME.json. A name with a slash is a path as it is. Throws PlanError, which lists the files
// that were looked for.
std::string FindPlan(const std::string& name);

// What FindPlan takes from here: files of the current folder that may be plans, and the names of the
// installed plans.
std::vector<std::string> PlanNames();

}  // namespace station
