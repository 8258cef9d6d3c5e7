// The creation of threads, which goes on unless a fault strikes.
#include <sched.h>

#include "simulator/supervisor/process_memory.h"
#include "simulator/supervisor/system_calls.h"

namespace simulator {

void SystemCalls::Clone(const CallPointer& call) {
  uint64_t flags = CLONE_THREAD;
  // clone3 takes the address of a record that begins with the flags, whatever the word size.
  if (call->Kind() == Call::CloneWith &&
      (!ReadMemory(call->Thread(), call->Argument(0), &flags, sizeof flags) || !call->StillWaits())) {
    return call->PassOn();
  }
  if ((flags & CLONE_THREAD) == 0) return call->PassOn();
  const auto rule = faults_.Strike(FaultCall::Thread, "");
  if (!rule) return call->PassOn();
  After(*rule, call, [call, error = rule->error] { error != 0 ? call->Refuse(error) : call->PassOn(); });
}

}  // namespace simulator
