// What ends a plan early: Ctrl-C, SIGTERM and SIGHUP, which end all runs, and a stop that is asked of one
// run. The first signal or a stop ends what is being waited for, so that the plan can clean up and report.
// The second signal ends the program at once.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <stdexcept>
#include <stop_token>

#include "posix/file_descriptor.h"

namespace station {

// The work was ended by a signal or a stop.
class Aborted : public std::runtime_error {
 public:
  Aborted();
};

// One run, which is all in the thread that makes this object. Until the object's end, a stop asked of the
// token ends this thread's waits as the first signal does. Runs of one thread follow each other, or one is
// within another: then the inner one's stop counts.
class StoppableRun {
 public:
  explicit StoppableRun(std::stop_token stop);
  StoppableRun(const StoppableRun&) = delete;
  StoppableRun& operator=(const StoppableRun&) = delete;
  ~StoppableRun();

  bool IsStopped() const {
    return stop_.stop_requested();
  }

  // Readable when a signal or the stop comes; -1 if no stop is possible.
  int Descriptor() const {
    return either_.Get();
  }

 private:
  struct Wake {
    int descriptor;
    void operator()() const;
  };

  std::stop_token stop_;
  const StoppableRun* outer_;
  posix::FileDescriptor wake_;
  posix::FileDescriptor either_;
  std::optional<std::stop_callback<Wake>> on_stop_;
};

// From now on the first signal is noted instead of ending the program.
void NoteInterruptions();

// A signal or this run's stop has come, and this thread is not cleaning up.
bool Interrupted();

// Throws Aborted if a signal or this run's stop has come.
void CheckInterruption();

// Becomes readable when a signal or this run's stop comes; -1 if this thread has nothing to wait for. `poll`
// ignores -1.
int InterruptionDescriptor();

// Throws Aborted when a signal or this run's stop comes.
void SleepUnlessInterrupted(std::chrono::milliseconds time);

// From now until the run's end this thread cleans up: a signal or stop that has come no longer ends its
// waits.
void CleanUpFromHere();

// The second signal kills the process groups of programs too, since no destructor runs then. Between these
// two calls it waits for the new group; a group of -1 is none.
void BeginProgramStart();
void EndProgramStart(pid_t group);
void RemoveProgramGroup(pid_t group);

}  // namespace station
