// The guardian: the process between the simulator and the phone's processes, which sees to it that none of
// them outlives the simulator, however that ends.
#pragma once

#include <linux/filter.h>

#include <vector>

namespace simulator {

struct GuardianDuty {
  const char* root;  // the phone's root directory
  bool removes_root;
  const char* link_path;  // a symbolic link to remove at the end, or empty
  const std::vector<sock_filter>* filter;
  int link;  // to the simulator
};

// The body of the forked guardian; returns never.
[[noreturn]] void RunGuardian(const GuardianDuty& duty);

}  // namespace simulator
