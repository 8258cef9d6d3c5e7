// The second half of the hostile program: other processes, sockets, objects between processes, and the kernel
// itself.
#pragma once

#include <sys/types.h>

struct WayCount {
  unsigned tried;
  unsigned got_out;
};

WayCount TryProcessesAndKernel(pid_t victim, int port, const char* socket_name, int shared_memory);
