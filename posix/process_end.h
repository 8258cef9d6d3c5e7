// Waiting for the end of a process that this program did not start.
#pragma once

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include "posix/file_descriptor.h"

namespace posix {

// Readable, as poll sees it, from the process's end on. Not open, with errno set, if there is no such
// process.
inline FileDescriptor ProcessEnd(pid_t process) {
  return FileDescriptor(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
}

}  // namespace posix
