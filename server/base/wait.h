// Waiting for time to pass or for a descriptor to have data.
#pragma once

#include <sys/time.h>

// Waits until `descriptor` has data to read or its far end has gone, but no longer than the time `left`. Null
// waits without end. `select` lowers `left` to the time that remains. Returns 1 if the descriptor is
// readable, 0 if the time is over, and -1 if the wait failed or a signal interrupted it. `select` takes no
// descriptor below 0 or from FD_SETSIZE on: such a one is never readable.
int WaitReadable(int descriptor, timeval* left);

// Pauses some milliseconds before another try at a descriptor that is readable but delivers nothing, such as
// a port whose cable was drawn. `poll` waits in real time wherever the server runs.
constexpr int RETRY_PAUSE_MS = 10;
void PauseBeforeRetry();

// Waits whole seconds. A signal does not shorten the wait.
void SleepSeconds(unsigned seconds);
