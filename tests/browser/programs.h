// Programs that a test of a page runs, and what they print on standard output and standard error. They end
// with the test also if that is killed.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "posix/file_descriptor.h"

namespace browser {

// How a program ended (128 and the signal if one ended it), and what it printed.
struct Finished {
  int status;
  std::string output;
};
Finished RunProgram(const std::vector<std::string>& words);

// A program that goes on; it is ended by SIGTERM and waited for with this object.
class RunningProgram {
 public:
  explicit RunningProgram(const std::vector<std::string>& words);
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;
  ~RunningProgram();

  // Waits for a line that begins so and returns the rest of it. Throws std::runtime_error with all output if
  // the program ends without one.
  std::string AwaitLine(const std::string& beginning);
  // Waits for its end and returns the exit status.
  int Wait();
  pid_t Process() const {
    return process_;
  }

 private:
  posix::FileDescriptor output_;
  std::string printed_;
  pid_t process_;
};

}  // namespace browser
