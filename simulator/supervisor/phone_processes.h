// The phone's processes as the PC lists them: those whose root directory is the phone's.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace simulator {

std::vector<pid_t> ProcessesIn(const std::string& root);
// Those whose program has this name, as `killall` sees it.
std::vector<pid_t> ProcessesNamed(const std::string& root, const std::string& name);

}  // namespace simulator
