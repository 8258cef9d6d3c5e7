// Which executable a simulated phone runs, asked of phonesim.
#pragma once

#include <optional>
#include <string>

#include "station/plan/runner.h"

namespace station {

// Of the phone that has this serial port. None for a port that is no simulated phone's, or if `phonesim`, a
// program's path or name, does not answer.
std::optional<Executable> SimulatedExecutable(const std::string& phonesim, const std::string& port);

// The phonesim beside this program, or the one on the search path.
std::string PhonesimBesideTool();

}  // namespace station
