// A point in time up to which something is waited for, on the monotonic clock.
#pragma once

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace posix {

class Deadline {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Deadline(std::chrono::nanoseconds from_now)
      : time_(Clock::now() + std::chrono::duration_cast<Clock::duration>(from_now)) {}

  bool HasPassed() const {
    return Clock::now() >= time_;
  }
  // Whole milliseconds that are left, rounded up, as poll takes them; 0 when the time has passed.
  int MillisecondsLeft() const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(time_ - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 1 << 30));
  }
  // Waits for one of the events on the descriptor. Returns false if the time passes first.
  bool WaitFor(int descriptor, short events) const {
    pollfd polled = {descriptor, events, 0};
    int ready;
    do {
      ready = poll(&polled, 1, MillisecondsLeft());
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
  }

 private:
  Clock::time_point time_;
};

}  // namespace posix
