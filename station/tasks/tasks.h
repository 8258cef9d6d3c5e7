// Operations made of several commands, or of a command and work on this side; by what they are about.
#pragma once

#include <vector>

#include "station/tasks/operation.h"

namespace station {

std::vector<Operation> LinkTasks();
std::vector<Operation> RecordTasks();
std::vector<Operation> ModemTasks();
std::vector<Operation> KeyTasks();
std::vector<Operation> RadioTasks();
std::vector<Operation> CameraTasks();

}  // namespace station
