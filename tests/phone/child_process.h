// Work in a process of its own, for what cannot be taken back: lost rights, a violent end.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

// Does the work in a child that ends with what it returns; gives that exit status, or 128 and the signal's
// number.
int InChild(const std::function<int()>& work);

// A child that does the work and then waits to be killed. `said` is what the work returned.
struct WaitingChild {
  pid_t process;
  std::string said;
};
WaitingChild StartChild(const std::function<std::string()>& work);

// Waits, at most ten seconds, until the condition holds.
bool Becomes(const std::function<bool()>& condition);
