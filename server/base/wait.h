// Waiting for time to pass or for a descriptor to have data.
#pragma once

#include <sys/time.h>

#include <cstdint>

// Waits until `descriptor` has data to read or its far end has gone, but no longer than the time `left`, and
// lowers `left` to the time that remains. Null waits without end. Returns 1 if the descriptor is readable, 0
// if the time is over, and -1 if the wait failed or a signal interrupted it. `select` takes no descriptor
// below 0 or from FD_SETSIZE on: such a one is never readable.
int WaitReadable(int descriptor, timeval* left);

// Waits some milliseconds. A signal may shorten the wait. `poll` waits in real time wherever the server runs.
void Pause(uint32_t milliseconds);

// The pause before another try at a descriptor that is ready but moves no data, such as a port whose cable
// was drawn.
constexpr uint32_t RETRY_PAUSE_MS = 10;
void PauseBeforeRetry();

// The time in milliseconds from some start in the past. It wraps round after 49 days, so only differences of
// two times mean anything.
uint32_t MonotonicMilliseconds();

// Waits whole seconds. A signal does not shorten the wait.
void SleepSeconds(unsigned seconds);
