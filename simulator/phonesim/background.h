// A program that goes on in the background once it is ready.
#pragma once

#include <functional>
#include <string>

namespace simulator {

// Does `work` in a process of its own, apart from the terminal, and returns when the work calls `ready` with
// what there is to print, or has failed. Gives the exit status: 0, or 1 after printing the failure.
int RunInBackground(const std::function<void(const std::function<void(const std::string&)>& ready)>& work);

}  // namespace simulator
