// How much processor time a process has used.
#pragma once

#include <fmt/format.h>
#include <sys/types.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

// Seconds, of all its threads.
inline double ProcessorTime(pid_t process) {
  std::ifstream file(fmt::format("/proc/{}/stat", process));
  std::string text;
  std::getline(file, text);
  std::istringstream fields(text.substr(text.rfind(')') + 2));
  std::string field;
  double ticks = 0;
  for (int number = 3; number <= 15 && fields >> field; ++number) {
    if (number >= 14) ticks += std::stod(field);
  }
  return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}
