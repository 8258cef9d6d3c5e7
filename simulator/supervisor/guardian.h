// The simulator's hold on a phone's guardian: starts the phone's processes through it and hears of their
// ends.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "posix/file_descriptor.h"
#include "posix/message_socket.h"
#include "simulator/supervisor/guardian_process.h"
#include "simulator/supervisor/limits.h"
#include "simulator/supervisor/seccomp_filter.h"

namespace simulator {

struct ProgramStart {
  std::string path;
  std::vector<std::string> arguments;  // the name first
  std::vector<std::string> environment;
  int standard[3] = {-1, -1, -1};
  bool controls_terminal = false;
};

struct StartedProgram {
  uint32_t number;
  pid_t process;
  posix::FileDescriptor listener;
  Confinement confinement;
};

struct EndedProgram {
  uint32_t number;
  int status;  // as waitpid returns it
};

// The PC does not allow what the phone needs; the text is one sentence for the person who started it.
class CannotSimulate : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Guardian {
 public:
  // Forks the guardian. At its end it removes the root directory, if it is told to, and the link, if there is
  // one. It keeps `lock` as long as it lives.
  // No file of the phone grows above the limit of the disk by one write. The kernel holds the number of
  // processes and threads a little above theirs, where it can.
  // `link_path` is a symbolic link to `link_target` that goes with the phone, or empty.
  Guardian(std::string root, bool removes_root, int lock, std::string link_path, std::string link_target,
           const PhoneLimits& limits);
  ~Guardian();
  Guardian(const Guardian&) = delete;
  Guardian& operator=(const Guardian&) = delete;

  // Throws CannotSimulate when the PC does not allow it.
  StartedProgram Start(const ProgramStart& program);
  // Readable when there is an end to take, or when the guardian itself is gone.
  int Descriptor() const {
    return link_.Get();
  }
  // The next end; none when the guardian is gone.
  std::optional<EndedProgram> TakeEnd();
  // An end came while another message was waited for. It does not make the descriptor readable.
  bool HasEnd() const {
    return !ends_.empty();
  }
  pid_t Process() const {
    return process_;
  }
  // The control group's directory, or empty.
  const std::string& TaskGroup() const {
    return task_group_;
  }
  // Ends every process of the phone now.
  void KillAll();
  // Kills every process of the phone and waits until the last is gone, and the temporary files too.
  void Finish();

 private:
  // The next report that is no end; ends are kept.
  LinkReport AwaitReport(posix::FileDescriptor& descriptor);

  std::string root_;
  bool removes_root_;
  std::string link_path_;
  std::string link_target_;
  PhoneLimits limits_;
  std::string task_group_;
  SystemCallFilters filters_;
  posix::FileDescriptor link_;
  pid_t process_ = 0;
  uint32_t last_number_ = 0;
  std::deque<EndedProgram> ends_;
};

}  // namespace simulator
