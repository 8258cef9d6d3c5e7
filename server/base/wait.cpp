#include "server/base/wait.h"

#include <poll.h>
#include <sys/select.h>
#include <unistd.h>

#include <ctime>

static timespec MonotonicTime() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

uint32_t MonotonicMilliseconds() {
  const timespec now = MonotonicTime();
  return static_cast<uint32_t>(now.tv_sec) * 1000 + static_cast<uint32_t>(now.tv_nsec / 1000000);
}

// `select` for one descriptor.
static int SelectReadable(int descriptor, timeval* left) {
  if (descriptor < 0 || descriptor >= FD_SETSIZE) return select(0, nullptr, nullptr, nullptr, left);
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(static_cast<unsigned>(descriptor), &readable);
  return select(descriptor + 1, &readable, nullptr, nullptr, left);
}

// Lowers the time left by what has passed since `start`, but not below 0. All of it is kept in the
// microseconds, since the channel takes microseconds of 0 for the end of the time.
static void LowerTimeLeft(timeval* left, const timespec& start) {
  const timespec now = MonotonicTime();
  const int64_t passed =
      static_cast<int64_t>(now.tv_sec - start.tv_sec) * 1000000 + (now.tv_nsec - start.tv_nsec) / 1000;
  int64_t remaining = static_cast<int64_t>(left->tv_sec) * 1000000 + left->tv_usec - passed;
  if (remaining < 0) remaining = 0;
  left->tv_sec = 0;
  left->tv_usec = static_cast<suseconds_t>(remaining);
}

int WaitReadable(int descriptor, timeval* left) {
  if (left == nullptr) return SelectReadable(descriptor, nullptr);
  const timeval given = *left;
  const timespec start = MonotonicTime();
  const int ready = SelectReadable(descriptor, left);
  // POSIX lets a libc leave the time value as it was. Linux's own call lowers it.
  if (left->tv_sec == given.tv_sec && left->tv_usec == given.tv_usec) LowerTimeLeft(left, start);
  return ready;
}

void Pause(uint32_t milliseconds) {
  poll(nullptr, 0, static_cast<int>(milliseconds));
}

void PauseBeforeRetry() {
  Pause(RETRY_PAUSE_MS);
}

void SleepSeconds(unsigned seconds) {
  // In steps that a 32-bit time can hold: the host may ask for any number.
  constexpr unsigned LONGEST = 0x7FFFFFFF;
  while (seconds != 0) {
    const unsigned step = seconds < LONGEST ? seconds : LONGEST;
    seconds -= step - sleep(step);
  }
}
