// Programs of this computer that a plan's steps run, for instance for a label printer or the simulated phone.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "posix/file_descriptor.h"

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

  // Waits for the first line of its output, for a program that goes on. Empty if none comes within the limit.
  std::string AwaitLine(std::chrono::milliseconds limit);

  // How it ended, as waitpid tells it; nothing if it was killed after its time.
  std::optional<int> WaitStatus() const {
    return wait_status_;
  }

  const std::string& Output() const {
    return output_;
  }

 private:
  void Kill();
  // Reads what comes within the limit. Returns false if nothing came; the time passes also if the output is
  // closed.
  bool ReadSome(std::chrono::milliseconds limit);

  pid_t process_ = -1;
  posix::FileDescriptor descriptor_;
  std::string output_;
  std::optional<int> wait_status_;
};

}  // namespace station
