// What phonesim says of the simulated phones that run.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "station/plan/runner.h"

namespace station {

// Of the phone that has this serial port. None for a port that is no simulated phone's, or if `phonesim`, a
// program's path or name, does not answer.
std::optional<Executable> SimulatedExecutable(const std::string& phonesim, const std::string& port);

// The serial ports of all that run.
std::vector<std::string> SimulatedPorts(const std::string& phonesim);

// The phonesim beside this program, or the one on the search path.
std::string PhonesimBesideTool();

}  // namespace station
