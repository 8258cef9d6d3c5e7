// The tool's row for each command of the protocol.
#pragma once

#include <vector>

#include "station/commands/command.h"

namespace station {

std::vector<Command> CommandRows();

}  // namespace station
