// A process of the phone: confined to the phone's root directory, stripped of what could reach the PC, its
// system calls answered by the simulator. Runs between fork and exec: nothing here allocates.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "simulator/supervisor/seccomp_filter.h"

namespace simulator {

struct PhoneProcessStart {
  const char* root;  // the root directory's path on the PC
  const SystemCallFilters* filters;
  uint64_t largest_file;  // bytes
  unsigned most_tasks;
  const char* task_group;
  pid_t guardian;
  int standard[3];         // descriptors of standard input, output and error
  bool controls_terminal;  // standard input becomes its controlling terminal
  int report;              // a message socket for one LinkReport: Started with the listener, or Refused
  const char* program;
  char** arguments;
  char** environment;
};

// Becomes the program.
[[noreturn]] void RunPhoneProcess(const PhoneProcessStart& start);

}  // namespace simulator
