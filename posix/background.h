// Work that goes on in a process of its own, apart from the terminal, when the program that started it ends.
#pragma once

#include <functional>
#include <string>

namespace posix {

using BackgroundWork = std::function<void(const std::function<void(const std::string&)>& ready)>;

// Starts the work. Returns when it calls `ready` with the text to print, or has failed: the exit status, 0,
// or after printing the failure in the program's name 1, or 7 for OutputLost.
int RunInBackground(const std::string& program, const BackgroundWork& work);

}  // namespace posix
