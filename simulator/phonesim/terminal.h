// phonesim and the terminal that it was started on: going on without it, and lending it to a shell in the
// phone.
#pragma once

#include <functional>
#include <string>

#include "posix/file_descriptor.h"

namespace simulator {

// Does `work` in a process of its own, apart from the terminal. Returns when the work calls `ready` with the
// text to print, or has failed: the exit status, 0, or 1 after printing the failure.
int RunInBackground(const std::function<void(const std::function<void(const std::string&)>& ready)>& work);

// Connects the terminal with a shell in the phone until the shell ends.
void RelayTerminal(const posix::FileDescriptor& shell);

}  // namespace simulator
