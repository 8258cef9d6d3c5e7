#include "server/base/wait.h"

#include <poll.h>
#include <sys/select.h>
#include <unistd.h>

int WaitReadable(int descriptor, timeval* left) {
  if (descriptor < 0 || descriptor >= FD_SETSIZE) return select(0, nullptr, nullptr, nullptr, left);
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(descriptor, &readable);
  return select(descriptor + 1, &readable, nullptr, nullptr, left);
}

void PauseBeforeRetry() {
  poll(nullptr, 0, RETRY_PAUSE_MS);
}

void SleepSeconds(unsigned seconds) {
  // In steps that a 32-bit time can hold: the host may ask for any number.
  constexpr unsigned LONGEST = 0x7FFFFFFF;
  while (seconds != 0) {
    const unsigned step = seconds < LONGEST ? seconds : LONGEST;
    seconds -= step - sleep(step);
  }
}
