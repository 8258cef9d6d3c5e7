// Signals, tracing, and questions about other threads: only within the phone.
#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include "simulator/supervisor/phone_processes.h"
#include "simulator/supervisor/system_calls.h"

namespace simulator {

// A number names whatever process has it at the moment. So the kernel does the call only when it is about the
// caller's own process, which cannot end meanwhile; the simulator holds any other while it looks and signals.
void SystemCalls::Signal(const CallPointer& call) {
  const int target = call->IntArgument(0);
  const int signal = call->IntArgument(1);
  const std::string& root = phone_.root.Path();
  const pid_t own = ProcessOf(call->Thread());
  if (!call->StillWaits()) return;
  if (signal < 0 || signal > SIGRTMAX) return call->Refuse(EINVAL);
  if (target == own) return call->PassOn();
  int error = ESRCH;
  if (target > 0) {
    error = SignalProcessIn(root, target, signal);
  } else {
    // 0: the caller's group; -1: every process but the caller; otherwise a group.
    const pid_t group = target == 0 ? getpgid(own) : -target;
    bool signals_own = false;
    for (const pid_t process : ProcessesIn(root)) {
      if (target == -1 ? process == own : getpgid(process) != group) continue;
      if (process == own) {
        signals_own = true;
      } else if (SignalProcessIn(root, process, signal) == 0) {
        error = 0;
      }
    }
    if (signals_own) error = SignalProcessIn(root, own, signal);
  }
  if (error != 0) return call->Refuse(error);
  call->Answer(0);
}

void SystemCalls::SignalThread(const CallPointer& call) {
  const bool alone = call->Kind() == Call::SignalThreadAlone;
  const pid_t named = alone ? ProcessOf(call->IntArgument(0)) : call->IntArgument(0);
  const pid_t own = ProcessOf(call->Thread());
  if (!call->StillWaits()) return;
  if (named == own) return call->PassOn();
  call->Refuse(ESRCH);
}

// The leak sanitizer traces its program from a process that the program has started. Any other process could
// be one that the guardian starts and has not confined yet.
void SystemCalls::Trace(const CallPointer& call) {
  const pid_t traced = ProcessOf(call->IntArgument(1));
  const bool allowed =
      traced > 0 && traced == ParentOf(call->Thread()) && IsProcessIn(phone_.root.Path(), traced);
  if (!call->StillWaits()) return;
  if (allowed) return call->PassOn();
  call->Refuse(EPERM);
}

void SystemCalls::AskAboutThread(const CallPointer& call) {
  const pid_t thread = call->IntArgument(0);
  if (thread == 0 || IsProcessIn(phone_.root.Path(), thread)) return call->PassOn();
  call->Refuse(ESRCH);
}

}  // namespace simulator
