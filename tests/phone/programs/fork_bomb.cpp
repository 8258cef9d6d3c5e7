// A fork bomb: each copy starts copies as fast as it can. With "apart" each goes into a session of its own,
// so no signal to a group ends them all. In case nothing stops it, it ends after some seconds, or when the
// machine has many more processes than at its start.
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <time.h>
#include <unistd.h>

#include <cstring>

namespace {

constexpr time_t LONGEST = 20;  // seconds
constexpr unsigned MOST_PROCESSES = 12'000;

unsigned MachineProcesses() {
  struct sysinfo machine = {};
  sysinfo(&machine);
  return machine.procs;
}

time_t Now() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec;
}

}  // namespace

int main(int count, char** arguments) {
  const bool apart = count > 1 && strcmp(arguments[1], "apart") == 0;
  const time_t end = Now() + LONGEST;
  const unsigned most = MachineProcesses() + MOST_PROCESSES;
  while (Now() < end && MachineProcesses() < most) {
    // Not the library's fork, which makes other calls beside it.
    if (syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0) == 0 && apart) setsid();
  }
  return 0;
}
