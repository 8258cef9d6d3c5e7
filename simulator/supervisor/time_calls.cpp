// Sleeping, and setting the clock, which is the PC's and stays as it is.
#include <fmt/format.h>
#include <time.h>

#include <algorithm>
#include <cerrno>

#include "simulator/supervisor/process_memory.h"
#include "simulator/supervisor/system_calls.h"

namespace simulator {
namespace {

struct TimeRecord {
  int64_t seconds;
  int64_t fraction;  // nanoseconds or microseconds
};

std::optional<TimeRecord> ReadTime(const TrappedCall& call, uint64_t address) {
  if (call.Times() == TimeWidth::Bits64) {
    TimeRecord time;
    if (!ReadMemory(call.Thread(), address, &time, sizeof time)) return std::nullopt;
    return time;
  }
  int32_t words[2];
  if (!ReadMemory(call.Thread(), address, words, sizeof words)) return std::nullopt;
  return TimeRecord{words[0], words[1]};
}

std::chrono::nanoseconds Length(const TimeRecord& time) {
  return std::chrono::seconds(std::clamp<int64_t>(time.seconds, 0, 1LL << 31)) +
         std::chrono::nanoseconds(time.fraction);
}

std::chrono::nanoseconds ClockNow(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return Length({now.tv_sec, now.tv_nsec});
}

}  // namespace

void SystemCalls::Sleep(const CallPointer& call) {
  const std::optional<TimeRecord> time = ReadTime(*call, call->Argument(2));
  if (!time || !call->StillWaits()) return call->PassOn();
  std::chrono::nanoseconds length = Length(*time);
  if ((call->Argument(1) & TIMER_ABSTIME) != 0) length -= ClockNow(static_cast<clockid_t>(call->Argument(0)));
  phone_.journal.Add({.kind = JournalKind::Sleep, .process = call->Thread(), .duration = length});
  if (const auto rule = faults_.Strike(FaultCall::Sleep, "")) {
    return After(*rule, call,
                 [call, error = rule->error] { error != 0 ? call->Refuse(error) : call->Answer(0); });
  }
  if (instant_sleeps_) return call->Answer(0);
  call->PassOn();
}

void SystemCalls::SetClock(const CallPointer& call) {
  const bool of_a_clock = call->Kind() == Call::SetClock;
  const uint64_t address = call->Argument(of_a_clock ? 1 : 0);
  JournalEntry entry = {.kind = JournalKind::Clock, .process = call->Thread()};
  if (call->Kind() == Call::SetTime) {
    int32_t seconds = 0;
    if (!ReadMemory(call->Thread(), address, &seconds, sizeof seconds)) return call->Refuse(EFAULT);
    entry.text = fmt::format("stime {}", seconds);
  } else if (address != 0) {  // settimeofday with a time zone only sets none
    const std::optional<TimeRecord> time = ReadTime(*call, address);
    if (!time) return call->Refuse(EFAULT);
    entry.text = of_a_clock ? fmt::format("clock_settime {}.{:09}", time->seconds, time->fraction)
                            : fmt::format("settimeofday {}.{:06}", time->seconds, time->fraction);
  }
  phone_.journal.Add(std::move(entry));
  call->Answer(0);
}

}  // namespace simulator
