// Programs of this computer that a plan's steps run, such as a label printer's or the simulated phone's.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace station {

// A running program and what it has written to standard output and standard error. It is killed, with what it
// started, when it is still running at the end of this object's life.
class HostProgram {
 public:
  // `words` are the program, searched for in PATH, and its arguments. Throws PlanError when it cannot be
  // started.
  explicit HostProgram(const std::vector<std::string>& words);
  HostProgram(HostProgram&& other) noexcept;
  HostProgram& operator=(HostProgram&&) = delete;
  ~HostProgram();

  // Waits for the program's end. Empty when it ended with exit status 0 in time, else what happened.
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
