// Waiting for a descriptor, by `select`.
#pragma once

#include <sys/time.h>

// Waits until `descriptor` is readable or the time `left` has gone; null waits without end. `select` lowers
// `left` to what remains. Gives 1 when readable, 0 when the time is over, -1 when the wait failed or a signal
// came. A descriptor that no set can hold (negative, or FD_SETSIZE and more) is never readable.
int WaitReadable(int descriptor, timeval* left);

// Pauses some milliseconds, before another try at a descriptor that is ready but delivers nothing (a port at
// hang-up). `poll` is used because it is a wait of real time wherever the server runs.
constexpr int RETRY_PAUSE_MS = 10;
void PauseBeforeRetry();
