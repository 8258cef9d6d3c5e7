// Opening a device or file for one piece of work. A routine that talks to a driver is a list of requests
// between an open and a close; here the open, its failure and the close on every path are written once.
#pragma once

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>

// Opens `path` with `flags`, gives the descriptor to `work` (int32_t work(int)), closes it and returns what
// the work returned; `open_failure` when the path cannot be opened, and the work is not done then.
template <typename Work>
int32_t WithDevice(const char* path, int flags, int32_t open_failure, Work work) {
  const int device = open(path, flags);
  if (device < 0) return open_failure;
  const int32_t result = work(device);
  close(device);
  return result;
}

// One driver request with the address of its argument, or null for a request that carries none. Gives what
// the driver gave: -1 for a refusal, else 0 or what the driver defines.
inline int DriverRequest(int device, unsigned long request, void* argument = nullptr) {
  return ioctl(device, request, argument);
}
