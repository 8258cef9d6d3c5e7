// What becomes of each system call of the phone's programs, by number, for each word size that a program can
// have. Calls that no row names do not exist for the phone. The rows decide on registers only: memory that a
// call points to can change after a decision.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>

namespace simulator {

// Calls that the simulator answers.
enum class Call : uint8_t {
  None,
  Open,
  OpenAt,
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
  Clone,         // of a new thread only
  LeaveGroup,    // of processes, for a new one or another
  Signal,        // to a process or a group
  SignalThread,  // of a process
  SignalThreadAlone,
  Trace,           // the start of it
  AskAboutThread,  // its scheduling, by its number
  ChangeMode,      // of an open file, as the next one
  ChangeOwner,
};

// How wide the times in a call's records are: a 32-bit program has calls of both kinds.
enum class TimeWidth : uint8_t { Bits64, Bits32 };

enum class Verdict : uint8_t {
  Allow,
  Ask,     // the simulator
  Refuse,  // with an error; 0: the call seems to have been done
};

// A row counts if the bits of an argument's word that the mask selects have the value. The first row that
// counts decides.
struct CallRow {
  int number;
  Verdict verdict;
  Call call = Call::None;
  TimeWidth time = TimeWidth::Bits64;
  int error = 0;
  uint8_t argument = 0;
  bool high_word = false;
  uint32_t mask = 0;
  uint32_t value = 0;

  constexpr CallRow If(uint8_t at, uint32_t selected, uint32_t wanted) const {
    CallRow row = *this;
    row.argument = at;
    row.mask = selected;
    row.value = wanted;
    return row;
  }
  constexpr CallRow IfIs(uint8_t at, uint32_t wanted) const {
    return If(at, ~0U, wanted);
  }
  constexpr CallRow IfHighWordIs(uint8_t at, uint32_t wanted) const {
    CallRow row = IfIs(at, wanted);
    row.high_word = true;
    return row;
  }
};

constexpr CallRow Allowed(int number) {
  return {number, Verdict::Allow};
}
constexpr CallRow Asked(int number, Call call, TimeWidth time = TimeWidth::Bits64) {
  return {number, Verdict::Ask, call, time};
}
constexpr CallRow Refused(int number, int error) {
  return {number, Verdict::Refuse, Call::None, TimeWidth::Bits64, error};
}

struct CallRows {
  std::span<const CallRow> common;  // of both word sizes
  std::span<const CallRow> own;     // of this one
};

struct Architecture {
  uint32_t audit_number;  // as the kernel names it in a notification
  CallRows rows;
  bool narrow;  // 32-bit words and pointers
};

// The calls of 32-bit programs.
CallRows NarrowCalls();
std::span<const Architecture> Architectures();
const Architecture* FindArchitecture(uint32_t audit_number);
// The row of a call that the simulator is asked about.
const CallRow* FindCall(const Architecture& architecture, int number);

}  // namespace simulator
