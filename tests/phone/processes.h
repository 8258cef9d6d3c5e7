// Processes in tests: work in a process of its own, for what cannot be taken back (lost rights, a violent
// end), and what the PC's kernel lists of the server.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <utility>

// Looks every few milliseconds; false when the condition still does not hold after the time.
bool Eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds time_out = std::chrono::seconds(10));

// Does the work in a child that ends with what it returns. Returns that exit status, or 128 and the signal's
// number.
int InChild(const std::function<int()>& work);

// A child that does the work and then waits to be killed. `said` is what the work returned.
struct WaitingChild {
  pid_t process;
  std::string said;
};
WaitingChild StartChild(const std::function<std::string()>& work);

// What a process holds, as the PC's kernel lists it: where its descriptors lead, its threads, and its
// children, ended or not.
struct Holdings {
  std::multiset<std::string> files;
  size_t threads = 0;
  size_t children = 0;

  bool operator==(const Holdings&) const = default;
};
Holdings HoldingsOf(pid_t process);

// What the descriptors above the standard three are open on, by device and inode: equal objects are one.
std::multiset<std::pair<dev_t, ino_t>> OpenObjects(pid_t process);
size_t OpenDescriptors(pid_t process);
size_t Threads(pid_t process);
// Waits until the process has so many threads; false when it still does not after some seconds. The kernel
// lists a thread for a moment after it was joined.
bool ComesToThreads(pid_t process, size_t count);
