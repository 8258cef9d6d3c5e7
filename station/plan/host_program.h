// Programs of this computer that a plan's steps run, for instance for a label printer or the simulated phone.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace station {

// A running program and its output on standard output and standard error. If it is still running when this
// object is destroyed, it is killed together with the programs that it started.
class HostProgram {
 public:
  // `words` are the program, searched for in PATH, and its arguments. Throws PlanError if it cannot be
  // started.
  explicit HostProgram(const std::vector<std::string>& words);
  HostProgram(HostProgram&& other) noexcept;
  HostProgram& operator=(HostProgram&&) = delete;
  ~HostProgram();

  // Waits for the program's end. Returns what went wrong, or nothing if it ended with exit status 0 in time.
  std::string Wait(std::chrono::milliseconds limit);

  const std::string& Output() const {
    return output_;
  }

 private:
  void Finish(int signal);

  pid_t process_ = -1;
  int descriptor_ = -1;
  std::string output_;
};

}  // namespace station
