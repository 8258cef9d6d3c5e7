// The smallest program: it ends at once with exit status 0. A shell script that does nothing would take
// longer to start than all else that happens when a tool runs.
#pragma once

#include <string_view>

namespace simulator {

extern const std::string_view DO_NOTHING_PROGRAM;

}  // namespace simulator
