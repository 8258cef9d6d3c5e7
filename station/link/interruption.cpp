#include "station/link/interruption.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <utility>

#include "station/commands/errors.h"

namespace station {

namespace {

std::atomic<int> signal_count = 0;
std::atomic<int> wake_descriptor = -1;
std::array<std::atomic<pid_t>, 256> program_groups;
std::atomic<int> programs_starting = 0;
thread_local bool cleaning_up = false;
thread_local const StoppableRun* current_run = nullptr;

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

posix::FileDescriptor MakeEvent() {
  return posix::FileDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
}

// `set` is readable while `descriptor` is.
void Watch(const posix::FileDescriptor& set, int descriptor) {
  epoll_event event{.events = EPOLLIN, .data = {}};
  if (descriptor >= 0) epoll_ctl(set.Get(), EPOLL_CTL_ADD, descriptor, &event);
}

void ReplaceGroup(pid_t from, pid_t to) {
  for (std::atomic<pid_t>& group : program_groups) {
    pid_t expected = from;
    if (group.compare_exchange_strong(expected, to)) return;
  }
}

}  // namespace

Aborted::Aborted()
    : std::runtime_error(signal_count > 0 ? "ended by Ctrl-C or a signal" : "the run was stopped") {}

StoppableRun::StoppableRun(std::stop_token stop) : stop_(std::move(stop)), outer_(current_run) {
  cleaning_up = false;
  current_run = this;
  if (!stop_.stop_possible()) return;
  wake_ = MakeEvent();
  either_ = posix::FileDescriptor(epoll_create1(EPOLL_CLOEXEC));
  Watch(either_, wake_.Get());
  Watch(either_, wake_descriptor);
  on_stop_.emplace(stop_, Wake{wake_.Get()});
}

StoppableRun::~StoppableRun() {
  current_run = outer_;
  cleaning_up = false;
}

void StoppableRun::Wake::operator()() const {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(descriptor, &one, sizeof one);
}

void NoteInterruptions() {
  wake_descriptor = MakeEvent().Release();
  struct sigaction action {};
  action.sa_handler = Note;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

bool Interrupted() {
  const bool stopped = current_run != nullptr && current_run->IsStopped();
  return (signal_count > 0 || stopped) && !cleaning_up;
}

void CheckInterruption() {
  if (Interrupted()) throw Aborted();
}

int InterruptionDescriptor() {
  if (cleaning_up) return -1;
  const int of_run = current_run != nullptr ? current_run->Descriptor() : -1;
  return of_run >= 0 ? of_run : wake_descriptor.load();
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
