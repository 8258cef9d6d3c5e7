// Where a run's report goes if only the folder for all reports is known.
#pragma once

#include <string>

namespace station {

// Makes a new folder for one run of the plan, and the folder for all runs if there is none; returns its path:
// "REPORTS/2026-01-15T08.30.00-factory", with a number if there is one already. Throws OutputLost.
std::string MakeRunFolder(const std::string& reports, const std::string& plan_file);

}  // namespace station
