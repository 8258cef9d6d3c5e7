// Ctrl-C, SIGTERM and SIGHUP while a plan runs. The first one ends what is being waited for, so that the plan
// can clean up and report; the second one ends the program at once.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <stdexcept>

namespace station {

// The work was ended by a signal.
class Aborted : public std::runtime_error {
 public:
  Aborted() : std::runtime_error("ended by Ctrl-C or a signal") {}
};

// From now on the first signal is noted instead of ending the program.
void NoteInterruptions();

// A signal has come, and this thread is not cleaning up.
bool Interrupted();

// Throws Aborted if a signal has come.
void CheckInterruption();

// Becomes readable when a signal comes; -1 if this thread has nothing to wait for. `poll` ignores -1.
int InterruptionDescriptor();

// Throws Aborted when a signal comes.
void SleepUnlessInterrupted(std::chrono::milliseconds time);

// From now on this thread cleans up: a signal that has come no longer ends its waits.
void CleanUpFromHere();

// The second signal kills the process groups of programs too, since no destructor runs then. Between these
// two calls it waits for the new group; a group of -1 is none.
void BeginProgramStart();
void EndProgramStart(pid_t group);
void RemoveProgramGroup(pid_t group);

}  // namespace station
