// phonesim's commands to a phone that runs already. The commands give the program's exit status.
#pragma once

#include <string>
#include <vector>

namespace simulator {

// The name of the running phone whose serial port this is. Throws an error with a sentence when there is
// none.
std::string PhoneAtPort(const std::string& port);

int StopPhone(const std::string& name);
int ShowPhones();
int ShellInPhone(const std::string& name);
int ShowJournal(const std::string& name, bool follow);
int CommandPhone(const std::string& name, std::vector<std::string> words);

}  // namespace simulator
