// What the hostile program's parts share: a way out is tried, counted, and told of if it worked.
#pragma once

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdio>

inline unsigned ways_tried = 0;
inline unsigned ways_out = 0;

inline void Report(const char* way, bool out) {
  ++ways_tried;
  if (!out) return;
  ++ways_out;
  printf("got out: %s\n", way);
}

// A system call that must not succeed.
template <typename... Arguments>
void Try(const char* way, long number, Arguments... arguments) {
  Report(way, syscall(number, arguments...) >= 0);
}

// By the entry for 32-bit programs.
inline long Call32(long number, long first = 0, long second = 0, long third = 0, long fourth = 0) {
#ifdef __x86_64__
  long result;
  asm volatile("int $0x80"
               : "=a"(result)
               : "a"(number), "b"(first), "c"(second), "d"(third), "S"(fourth)
               : "memory", "r8", "r9", "r10", "r11");
  return static_cast<int>(result);
#else
  return syscall(number, first, second, third, fourth);
#endif
}

// Other processes, sockets, objects between processes, and the kernel itself.
void TryProcessesAndKernel(pid_t victim, int port, const char* socket_name, int shared_memory);
