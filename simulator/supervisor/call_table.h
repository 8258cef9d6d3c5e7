// The system calls that the simulator answers for the phone, by number, for each word size that a program of
// the phone can have.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace simulator {

enum class Call {
  Open,
  OpenAt,
  OpenAt2,
  Create,
  ReadLink,
  ReadLinkAt,
  Exec,
  ExecAt,
  Sleep,  // clock_nanosleep; nanosleep is left alone, the thread sanitizer's own thread lives on it
  SetTimeOfDay,
  SetClock,
  SetTime,
  Reboot,
  DeviceRequest,  // ioctl, except the terminal's own requests
  // pread64 at a place that no file reaches: an ARM program's ioctl (phone/carried_request.c).
  CarriedRequest,
  Clone,      // of a new thread only
  CloneWith,  // clone3, of every new process and thread
  // sendfile and splice, refused by the filter so that programs read and write instead: while the kernel
  // copies into a pipe it keeps the pipe locked, and the simulator that reads it would wait for the source as
  // well.
  CopyBetween,
};

// How wide the times in a call's records are: a 32-bit program has calls of both kinds.
enum class TimeWidth : uint8_t { Bits64, Bits32 };

struct CallNumber {
  int number;
  Call call;
  TimeWidth time = TimeWidth::Bits64;
};

struct Architecture {
  uint32_t audit_number;  // as the kernel names it in a notification
  std::span<const CallNumber> calls;
  bool narrow;  // 32-bit words and pointers
};

// The calls of 32-bit programs.
std::span<const CallNumber> NarrowCalls();
std::span<const Architecture> Architectures();
const Architecture* FindArchitecture(uint32_t audit_number);
const CallNumber* FindCall(const Architecture& architecture, int number);

}  // namespace simulator
