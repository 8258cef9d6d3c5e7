// The guardian: the process between the simulator and the phone's processes, which sees to it that none of
// them outlives the simulator, however that ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "simulator/supervisor/seccomp_filter.h"

namespace simulator {

constexpr size_t MAX_LINK_MESSAGE = 65536;

enum class LinkKind : uint32_t {
  Start,    // to the guardian: a StartHeader, then the texts; descriptors: standard input, output, error
  Kill,     // to it: every process of the phone ends now
  Started,  // from it: number, process; descriptor: the listener for its system calls
  Refused,  // the phone's process could not be made: number, step, error
  Ended,    // number, status as waitpid returns it
  Killed,   // none is left
};

// What holds a program's number of processes and threads. The simulator counts in addition, now and then.
enum class TaskLimit : uint32_t {
  Counting,      // nothing else
  ControlGroup,  // the kernel, all programs of the phone together
  User,          // the kernel, each program that the simulator starts by itself
};

// What the kernel holds a program to, beside its root directory and its list of calls.
struct Confinement {
  uint32_t landlock;  // LandlockScope
  TaskLimit tasks;
};

// How far the start of a phone's process came.
enum class StartStep : uint32_t { Fork, UserNamespace, ChangeRoot, Filter };

struct StartHeader {
  LinkKind kind;
  uint32_t number;     // names this start in all messages
  uint32_t arguments;  // so many texts: first the program's path, then its arguments, its name first
  uint32_t environment;
  uint32_t controls_terminal;  // its standard input becomes its controlling terminal
};

struct LinkReport {
  LinkKind kind;
  uint32_t number;
  int32_t process;
  int32_t status;
  StartStep step;
  int32_t error;
  Confinement confinement;  // of Started
};

struct GuardianDuty {
  const char* root;  // the phone's root directory
  bool removes_root;
  int lock;                 // a descriptor: the phone counts as living while it is open
  const char* link_path;    // a symbolic link to remove at the end, or empty
  const char* link_target;  // where it leads; a path that leads elsewhere by then is not ours
  const SystemCallFilters* filters;
  uint64_t largest_file;   // bytes that one of the phone's files can have
  unsigned most_tasks;     // that the kernel lets a program have
  const char* task_group;  // its directory, or empty
  int link;                // to the simulator
};

// The body of the forked guardian. Never returns.
[[noreturn]] void RunGuardian(const GuardianDuty& duty);

}  // namespace simulator
