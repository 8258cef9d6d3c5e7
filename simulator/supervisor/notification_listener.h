// The receiving end of the system calls of one group of the phone's processes.
#pragma once

#include <linux/seccomp.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "posix/file_descriptor.h"

namespace simulator {

class NotificationListener {
 public:
  explicit NotificationListener(posix::FileDescriptor listener);

  int Descriptor() const {
    return listener_.Get();
  }

  // The next call; none when its caller is gone already.
  std::optional<seccomp_notif> Receive();
  // The caller still waits, so what was read from its memory was its own.
  bool StillWaits(uint64_t id) const;

  // Each gives false when the caller is gone.
  bool Answer(uint64_t id, int64_t result);
  bool Refuse(uint64_t id, int error);
  bool PassOn(uint64_t id);  // the kernel does the call
  // The call returns a copy of `descriptor` in the caller.
  bool AnswerWithDescriptor(uint64_t id, int descriptor, bool close_on_exec);

 private:
  bool Send(const seccomp_notif_resp& response);

  posix::FileDescriptor listener_;
  std::vector<uint8_t> received_;
};

}  // namespace simulator
