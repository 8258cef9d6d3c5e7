// Operations made of several commands, or of a command and work on this side.
#pragma once

#include <vector>

#include "station/operation.h"

namespace station {

std::vector<Operation> Tasks();

}  // namespace station
