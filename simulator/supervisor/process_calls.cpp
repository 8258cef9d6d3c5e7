// Starting programs and threads, sleeping, and setting the clock.
#include <fmt/format.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>

#include "simulator/phone/emulator.h"
#include "simulator/phone/server_program.h"
#include "simulator/supervisor/phone_paths.h"
#include "simulator/supervisor/phone_processes.h"
#include "simulator/supervisor/system_calls.h"

namespace simulator {

namespace {

// The command line of `sh -c TEXT`, as `system` and `popen` start it.
std::optional<std::string> ShellText(const std::string& path, const std::vector<std::string>& arguments) {
  if (std::filesystem::path(path).filename() != "sh" || arguments.size() < 3 || arguments[1] != "-c") {
    return std::nullopt;
  }
  return arguments[2] == "--" && arguments.size() > 3 ? arguments[3] : arguments[2];
}

}  // namespace

void SystemCalls::Exec(const CallPointer& call, int directory, size_t first) {
  const std::optional<std::string> text = ReadText(call->Thread(), call->Argument(first), PATH_MAX);
  const auto arguments = ReadTextList(call->Thread(), call->Argument(first + 1), call->Narrow());
  if (!text || text->empty() || !arguments) return call->PassOn();
  const std::optional<std::string> absolute = AbsolutePath(phone_.root, call->Thread(), directory, *text);
  if (!call->StillWaits()) return;
  if (!absolute) return call->PassOn();
  // A tool that is a link is known by its own name, not by that of the program that plays it.
  const std::string path = std::filesystem::path(*absolute).lexically_normal();
  const ResolvedPath resolved = ResolvePath(phone_.root, path);
  if (!resolved.exists) return call->PassOn();

  JournalEntry entry = {
      .kind = JournalKind::Tool, .process = call->Thread(), .path = path, .arguments = *arguments};
  if (path == EMULATOR_PATH) {
    entry.path = SERVER_PATH;
    entry.arguments = EmulatedArguments(*arguments);
  }
  if (const std::optional<std::string> command = ShellText(path, *arguments)) {
    entry = {.kind = JournalKind::Shell, .process = call->Thread(), .text = *command};
  }
  FaultRule rule;
  if (const auto strike = faults_.Strike(FaultCall::Exec, path)) rule = *strike;
  After(rule, call, [this, call, rule, entry, path, arguments = *arguments]() mutable {
    if (RefusedBy(rule, *call, entry)) return;
    DeviceModel* model = ModelOf(path);
    if (model != nullptr) entry.error = model->Exec({path, std::move(arguments), call->Thread()});
    const int error = entry.error;
    phone_.journal.Add(std::move(entry));
    if (error != 0) return call->Refuse(error);
    call->PassOn();
  });
}

void SystemCalls::Clone(const CallPointer& call) {
  starting_();
  const auto rule = faults_.Strike(FaultCall::Thread, "");
  if (!rule) return call->PassOn();
  After(*rule, call, [call, error = rule->error] { error != 0 ? call->Refuse(error) : call->PassOn(); });
}

// A group stops at once, whatever it starts, and gets one share of the processor. So leaving it counts
// as a start, and only one process leaves in a millisecond: copies that go apart from each other cannot be
// ahead of the counting.
void SystemCalls::LeaveGroup(const CallPointer& call) {
  constexpr auto PACE = std::chrono::milliseconds(1);
  starting_();
  const auto now = std::chrono::steady_clock::now();
  const auto turn = std::max(now, next_leaving_);
  next_leaving_ = turn + PACE;
  if (turn == now) return call->PassOn();
  Hold(call);
  phone_.loop.After(std::chrono::ceil<std::chrono::milliseconds>(turn - now), [call] { call->PassOn(); });
}

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
  if (emulated_ && IsEmulatorsOwn(call->Thread(), phone_.root.Path() + EMULATOR_PATH)) return call->PassOn();
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
  if (!call->StillWaits()) return;  // what was read is another's
  phone_.journal.Add(std::move(entry));
  call->Answer(0);
}

}  // namespace simulator
