// The filters that do what the call table says.
#pragma once

#include <linux/filter.h>

#include <vector>

namespace simulator {

struct SystemCallFilters {
  std::vector<sock_filter> asking;     // sends calls to the simulator
  std::vector<sock_filter> confining;  // refuses what the phone does not need
};

// Made before the fork, since nothing may be allocated after it.
SystemCallFilters MakeSystemCallFilters();

// Puts the filter on the calling process and returns the descriptor by which its calls are answered, or -1
// with errno. Async-signal-safe, as the next one.
int InstallAskingFilter(const SystemCallFilters& filters);
// The last thing before the program starts: sending the descriptor away is refused after it.
bool InstallConfiningFilter(const SystemCallFilters& filters);

}  // namespace simulator
