// Drivers and files. A routine that talks to a driver is a list of requests between an open and a close. The
// open, its failure and the close on every path are written once, here.
#pragma once

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>

// Opens `path` with `flags`, passes the descriptor to `work` (int32_t work(int)), closes it and returns the
// result of the work. If the path cannot be opened, returns `open_failure` without doing the work.
template <typename Work>
int32_t WithDevice(const char* path, int flags, int32_t open_failure, Work work) {
  const int device = open(path, flags);
  if (device < 0) return open_failure;
  const int32_t result = work(device);
  close(device);
  return result;
}

// The type of a request number: libcs declare `ioctl` with an unsigned long or an int.
template <typename Number>
Number RequestNumberOf(int (*)(int, Number, ...));
using RequestNumber = decltype(RequestNumberOf(ioctl));

// Issues one driver request with the address of its argument, or null if it takes none. Returns -1 if the
// driver refuses, otherwise 0 or what the driver defines.
inline int IssueRequest(int device, unsigned long request, void* argument = nullptr) {
  return ioctl(device, static_cast<RequestNumber>(request), argument);
}

// The phone's GPIO driver: lines, flags and power control by private requests, _IOW('O', nr, 4) or
// _IOR('O', nr, 4). Each routine that owns requests names their numbers beside itself.
constexpr char GPIO_DEVICE[] = "/dev/misc/omap730_gpio";

// Opens the GPIO driver read-write, issues one request without an argument, and closes it. A missing driver
// and a refused request are ignored: no caller could do anything about them. The tone thread calls this while
// a command may start a program, which must not inherit the descriptor: hence close-on-exec.
void IssueGpioRequest(unsigned long request);
