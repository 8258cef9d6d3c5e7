// How much of the PC a phone may use, counted by the simulator: the kernel's own limits count per user and
// not for root, or count addresses instead of memory.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/phone/root_directory.h"
#include "simulator/supervisor/phone_processes.h"

namespace simulator {

struct PhoneLimits {
  unsigned tasks = 256;          // processes and threads
  uint64_t memory = 1ULL << 30;  // bytes in use by all programs together
  uint64_t disk = 1ULL << 30;    // bytes of all files together
  unsigned files = 50'000;       // and directories

  std::string Text() const;  // "256 processes and threads, ..."
};

class LimitWatch {
 public:
  LimitWatch(const RootDirectory& root, const PhoneLimits& limits) : root_(root), limits_(limits) {}

  // What the phone has too much of, with the count; empty if nothing. `guardian` is the parent of all its
  // processes; `task_group` is their control group, or empty.
  std::string Look(pid_t guardian, const std::string& task_group);
  // The phone has many processes and threads, and the machine so many more than at the last look that the
  // phone may have too many. Costs little.
  bool MayHaveTooManyTasks(pid_t guardian) const;
  // The same for a process or thread that is about to start: of the tasks alone.
  std::string LookAtStart(pid_t guardian);

 private:
  std::string JudgeTasks(Descendants usage, const std::string& task_group);
  std::string JudgeMemory(const Descendants& usage) const;
  std::string JudgeDisk(const Descendants& usage);
  bool DiskIsDue();

  const RootDirectory& root_;
  PhoneLimits limits_;
  unsigned tasks_ = 0;          // at the last count, and those started since
  unsigned machine_tasks_ = 0;  // of the whole PC, then
  uint64_t free_bytes_ = 0;     // of the PC's file system, when the phone's files were counted last
  unsigned looks_ = 0;
};

// The calling thread gets the processor sooner, and for a shorter time at once. Linux 6.12 and newer can do
// it; others leave everything as it is.
void TakeShortTurns();

}  // namespace simulator
