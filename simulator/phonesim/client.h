// phonesim's commands to a phone that runs already. Each gives the program's exit status.
#pragma once

#include <string>
#include <vector>

namespace simulator {

int StopPhone(const std::string& name);
int ShowPhones();
int ShellInPhone(const std::string& name);
int ShowJournal(const std::string& name, bool follow);
int CommandPhone(const std::string& name, std::vector<std::string> words);

}  // namespace simulator
