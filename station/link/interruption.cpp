#include "station/link/interruption.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>

#include "station/commands/errors.h"

namespace station {

namespace {

std::atomic<int> signal_count = 0;
std::atomic<int> wake_descriptor = -1;
std::array<std::atomic<pid_t>, 256> program_groups;
std::atomic<int> programs_starting = 0;
thread_local bool cleaning_up = false;

[[noreturn]] void EndAtOnce() {
  for (const std::atomic<pid_t>& group : program_groups) {
    if (group > 0) kill(-group, SIGKILL);
  }
  _exit(static_cast<int>(ExitStatus::Aborted));
}

// Only calls that a signal handler may make.
void Note(int) {
  const int saved = errno;
  if (signal_count.fetch_add(1) > 0 && programs_starting == 0) EndAtOnce();
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(wake_descriptor, &one, sizeof one);
  errno = saved;
}

void ReplaceGroup(pid_t from, pid_t to) {
  for (std::atomic<pid_t>& group : program_groups) {
    pid_t expected = from;
    if (group.compare_exchange_strong(expected, to)) return;
  }
}

}  // namespace

void NoteInterruptions() {
  wake_descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  struct sigaction action {};
  action.sa_handler = Note;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

bool Interrupted() {
  return signal_count > 0 && !cleaning_up;
}

void CheckInterruption() {
  if (Interrupted()) throw Aborted();
}

int InterruptionDescriptor() {
  return cleaning_up ? -1 : wake_descriptor.load();
}

void SleepUnlessInterrupted(std::chrono::milliseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  for (;;) {
    CheckInterruption();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return;
    pollfd waiting{InterruptionDescriptor(), POLLIN, 0};
    poll(&waiting, 1, static_cast<int>(left.count()));
  }
}

void CleanUpFromHere() {
  cleaning_up = true;
}

void BeginProgramStart() {
  ++programs_starting;
}

void EndProgramStart(pid_t group) {
  if (group > 0) ReplaceGroup(0, group);
  --programs_starting;
  if (signal_count > 1) EndAtOnce();
}

void RemoveProgramGroup(pid_t group) {
  ReplaceGroup(group, 0);
}

}  // namespace station
