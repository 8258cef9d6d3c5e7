// The filter that sends the calls of the call table to the simulator and lets all others pass.
#pragma once

#include <linux/filter.h>

#include <vector>

namespace simulator {

// Made before the fork, since nothing may be allocated after it.
std::vector<sock_filter> MakeSystemCallFilter();

// Puts the filter on the calling process and returns the descriptor by which its calls are answered, or -1
// with errno. Async-signal-safe.
int InstallSystemCallFilter(const std::vector<sock_filter>& filter);

}  // namespace simulator
