// The commands that a phone takes from phonesim; no phone needs to run for it.
#pragma once

#include <string>
#include <vector>

namespace simulator {

std::vector<std::string> PhoneCommandNames();

// Two lines for each: its words, and what it does.
std::string PhoneCommandList();

// The same in troff, for the manual page.
std::string ManualPhoneCommands();

}  // namespace simulator
