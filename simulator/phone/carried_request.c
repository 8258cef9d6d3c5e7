/* Loaded into an ARM server that runs under the emulator qemu-arm: takes the place of `ioctl`. The emulator
   refuses driver requests that it does not know. It hands a read at a position on, whatever the position is,
   so a driver request becomes one at a place that no file reaches; the simulator recognises it by the place
   (seccomp_filter.cpp). Built without a libc of its own: it asks `syscall` of the one that the server has. */
#include <stdarg.h>
#include <stdint.h>
#include <sys/syscall.h>

long syscall(long number, ...);

/* The upper word of the place; the lower one is the request. */
#define CARRIED 0x70680000

int ioctl(int descriptor, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  const uint32_t argument = va_arg(arguments, uint32_t);
  va_end(arguments);
  /* A terminal's own requests, which the emulator knows. */
  if ((request & 0xFF00) == 0x5400) return (int)syscall(SYS_ioctl, descriptor, request, argument);
  /* The box says where it lies itself: the simulator sees where that is in the emulator's memory, and so
     where the argument is. */
  uint32_t box[2] = {0, argument};
  box[0] = (uint32_t)(uintptr_t)box;
  /* The 0 keeps the place in an even pair of registers, as the EABI passes it. */
  return (int)syscall(SYS_pread64, descriptor, box, sizeof box, 0, request, CARRIED);
}

/* The name that a libc with 64-bit times uses. */
int __ioctl_time64(int descriptor, unsigned long request, ...) __attribute__((alias("ioctl")));
