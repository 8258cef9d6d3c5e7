// phonesim's commands to a phone that runs already. Each returns the program's exit status, and none waits
// without end for a phone that does not answer.
#pragma once

#include <string>
#include <vector>

namespace simulator {

// The name of the running phone that has this serial port. Throws an error with a sentence if there is none.
std::string PhoneAtPort(const std::string& port);

int StopPhone(const std::string& name);
// As a list of JSON objects if wanted so.
int ShowPhones(bool as_json);
int ShellInPhone(const std::string& name);
int ShowJournal(const std::string& name, bool follow);
// The names, or the serial ports, of the running phones: a line for each.
int ListNames();
int ListPorts();
int CommandPhone(const std::string& name, std::vector<std::string> words);

}  // namespace simulator
