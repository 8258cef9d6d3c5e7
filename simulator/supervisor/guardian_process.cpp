#include "simulator/supervisor/guardian_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "posix/file_descriptor.h"
#include "posix/message_socket.h"
#include "simulator/phone/removal.h"
#include "simulator/supervisor/phone_process.h"
#include "simulator/supervisor/task_group.h"

namespace simulator {
namespace {

constexpr size_t MAX_STARTS = 64;      // processes started and not yet ended
constexpr size_t MAX_TEXTS = 256;      // arguments and environment of one of them
constexpr int LOWEST_OWN_NUMBER = 10;  // descriptors below are the standard ones

// A process that the simulator asked for. The listener is a second copy of the simulator's: without it the
// calls that wait would return ENOSYS when the simulator dies, and the phone's loops would run wild.
struct Start {
  uint32_t number;
  pid_t process = 0;  // 0: ended
  int listener = -1;
};

struct Guardian {
  GuardianDuty duty;
  Start starts[MAX_STARTS];
  int child_signals;
};

// Kept out of the stack; the guardian has one of each.
Guardian guardian;
alignas(StartHeader) char message_bytes[MAX_LINK_MESSAGE];

void Report(const LinkReport& report, int listener = -1) {
  posix::SendMessage(guardian.duty.link, &report, sizeof report, &listener, listener >= 0 ? 1 : 0);
}

Start* FreeStart() {
  for (Start& start : guardian.starts) {
    if (start.process == 0 && start.listener < 0) return &start;
  }
  return nullptr;
}

// Splits the texts after the header into null-ended lists. Returns false if there is no room for them.
bool TakeTexts(char*& text, const char* end, char** list, size_t count) {
  if (count >= MAX_TEXTS) return false;
  for (size_t index = 0; index < count; ++index) {
    if (text >= end) return false;
    list[index] = text;
    text += strlen(text) + 1;
  }
  list[count] = nullptr;
  return true;
}

void StartProcess(const posix::Message& message) {
  StartHeader header;
  memcpy(&header, message_bytes, sizeof header);
  LinkReport report = {LinkKind::Refused, header.number, 0, 0, StartStep::Fork, EINVAL, {}};
  char* arguments[MAX_TEXTS];
  char* environment[MAX_TEXTS];
  char* text = message_bytes + sizeof header;
  const char* end = message_bytes + message.size;
  int sockets[2];
  Start* start = FreeStart();
  if (start == nullptr || !TakeTexts(text, end, arguments, header.arguments) ||
      !TakeTexts(text, end, environment, header.environment) || header.arguments < 2 ||
      socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) != 0) {
    return Report(report);
  }

  const pid_t self = getpid();
  const pid_t process = fork();
  if (process == 0) {
    RunPhoneProcess({guardian.duty.root,
                     guardian.duty.filters,
                     guardian.duty.largest_file,
                     guardian.duty.most_tasks,
                     guardian.duty.task_group,
                     self,
                     {message.descriptors[0], message.descriptors[1], message.descriptors[2]},
                     header.controls_terminal != 0,
                     sockets[1],
                     arguments[0],
                     arguments + 1,
                     environment});
  }
  close(sockets[1]);
  report.error = errno;
  int listener = -1;
  if (process > 0) {
    const posix::Message answer = posix::ReceiveMessage(sockets[0], &report, sizeof report);
    listener = answer.descriptors[0];
    if (answer.size != sizeof report) report = {LinkKind::Refused, 0, 0, 0, StartStep::Fork, ECHILD, {}};
    if (report.kind == LinkKind::Started && listener < 0) {
      // The listener was dropped on the way: there is no free number for it.
      kill(process, SIGKILL);
      report = {LinkKind::Refused, 0, 0, 0, StartStep::Fork, EMFILE, {}};
    }
  }
  close(sockets[0]);
  report.number = header.number;
  report.process = process;
  if (report.kind == LinkKind::Started) *start = {header.number, process, listener};
  Report(report, listener);
}

// Returns what waitpid returns, and reports the end of a program that the simulator asked for.
pid_t ReapChild(int options) {
  int status;
  const pid_t process = waitpid(-1, &status, options);
  for (Start& start : guardian.starts) {
    if (process <= 0 || start.process != process) continue;
    start.process = 0;
    Report({LinkKind::Ended, start.number, process, status, StartStep::Fork, 0, {}});
  }
  return process;
}

// Its group goes with it at once: what only starts copies of itself has no time to start another. All
// groups but the guardian's own are the phone's.
void KillChild(pid_t process, pid_t& last_group) {
  const pid_t group = getpgid(process);
  if (group > 1 && group != last_group && group != getpgrp()) kill(-group, SIGKILL);
  last_group = group;
  kill(process, SIGKILL);
}

// Children that the guardian has now: a child's own children become the guardian's when it dies.
void KillChildren() {
  const int list = open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC);
  if (list < 0) return;
  pid_t process = 0;
  pid_t last_group = 0;
  char bytes[4096];
  ssize_t size;
  while ((size = read(list, bytes, sizeof bytes)) > 0) {
    for (ssize_t index = 0; index < size; ++index) {
      if (bytes[index] >= '0' && bytes[index] <= '9') {
        process = process * 10 + (bytes[index] - '0');
      } else if (process != 0) {
        KillChild(process, last_group);
        process = 0;
      }
    }
  }
  close(list);
}

void KillDescendants() {
  CloseTaskGroup(guardian.duty.task_group);
  pid_t ended;
  do {
    KillChildren();
    ended = ReapChild(0);
    while (ended > 0 && ReapChild(WNOHANG) > 0) continue;
  } while (ended > 0 || errno == EINTR);
}

void DropListener(Start& start) {
  close(start.listener);
  start.listener = -1;
}

// Serves until the simulator closes its end of the link, by will or by its death.
void ServeLink() {
  while (true) {
    pollfd polled[MAX_STARTS + 2] = {{guardian.duty.link, POLLIN, 0}, {guardian.child_signals, POLLIN, 0}};
    Start* polled_starts[MAX_STARTS];
    // poll refuses more entries than a process may have descriptors, also those that it would leave out.
    nfds_t count = 2;
    for (Start& start : guardian.starts) {
      if (start.listener < 0) continue;
      polled_starts[count - 2] = &start;
      polled[count++] = {start.listener, 0, 0};  // it hangs up when its last process is gone
    }
    if (poll(polled, count, -1) < 0) {
      if (errno == EINTR || errno == EAGAIN || errno == ENOMEM) continue;
      return;
    }
    if (polled[1].revents != 0) {
      signalfd_siginfo ignored;
      while (read(guardian.child_signals, &ignored, sizeof ignored) > 0) continue;
      while (ReapChild(WNOHANG) > 0) continue;
    }
    for (nfds_t index = 2; index < count; ++index) {
      if (polled[index].revents != 0) DropListener(*polled_starts[index - 2]);
    }
    if (polled[0].revents == 0) continue;
    const posix::Message message =
        posix::ReceiveMessage(guardian.duty.link, message_bytes, sizeof message_bytes);
    if (message.size < static_cast<ssize_t>(sizeof(StartHeader))) return;
    if (reinterpret_cast<const StartHeader*>(message_bytes)->kind == LinkKind::Kill) {
      KillDescendants();
      Report({LinkKind::Killed, 0, 0, 0, StartStep::Fork, 0, {}});
      continue;
    }
    StartProcess(message);
    for (int descriptor : message.descriptors) {
      if (descriptor >= 0) close(descriptor);
    }
  }
}

void CloseFromTo(unsigned first, unsigned last) {
  if (first > last || close_range(first, last, 0) == 0) return;
  for (unsigned number = first; number <= std::min(last, 65535U); ++number) close(static_cast<int>(number));
}

// Closes everything else that came from the simulator. Otherwise another phone's link would never end.
void KeepOnly(int& link, int& lock) {
  // First of all, since the simulator may have used up all the numbers that a process may have.
  const auto [lower, higher] = std::minmax(link, lock);
  if (lower > 0) CloseFromTo(0, static_cast<unsigned>(lower) - 1);
  CloseFromTo(static_cast<unsigned>(lower + 1), static_cast<unsigned>(higher) - 1);
  CloseFromTo(static_cast<unsigned>(higher) + 1, ~0U);
  link = fcntl(link, F_DUPFD_CLOEXEC, LOWEST_OWN_NUMBER);
  lock = fcntl(lock, F_DUPFD_CLOEXEC, LOWEST_OWN_NUMBER);
  link = dup3(link, LOWEST_OWN_NUMBER - 1, O_CLOEXEC);
  lock = dup3(lock, LOWEST_OWN_NUMBER - 2, O_CLOEXEC);
  CloseFromTo(LOWEST_OWN_NUMBER, ~0U);
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  // The phone gets none of them; its three standard descriptors are set in their places.
  for (int number = 0; number < LOWEST_OWN_NUMBER - 2; ++number) dup3(nothing, number, O_CLOEXEC);
}

}  // namespace

void RunGuardian(const GuardianDuty& duty) {
  guardian.duty = duty;
  KeepOnly(guardian.duty.link, guardian.duty.lock);
  setsid();
  prctl(PR_SET_NAME, "phone-guardian");
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  // No signal but the deadly one ends the guardian before its duty is done.
  sigset_t signals;
  sigfillset(&signals);
  sigprocmask(SIG_SETMASK, &signals, nullptr);
  sigemptyset(&signals);
  sigaddset(&signals, SIGCHLD);
  guardian.child_signals = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;  // a program that ignores SIGCHLD has no children to wait for
  sigaction(SIGCHLD, &action, nullptr);

  ServeLink();
  KillDescendants();
  RemoveTaskGroup(duty.task_group);
  RemoveLink(duty.link_path, duty.link_target);
  if (duty.removes_root) RemoveTree(duty.root);
  _exit(0);
}

}  // namespace simulator
