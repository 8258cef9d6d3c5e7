#include "simulator/supervisor/phone_process.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "posix/message_socket.h"
#include "simulator/supervisor/guardian_process.h"
#include "simulator/supervisor/landlock.h"
#include "simulator/supervisor/seccomp_filter.h"
#include "simulator/supervisor/task_group.h"

namespace simulator {
namespace {

[[noreturn]] void Fail(const PhoneProcessStart& start, StartStep step) {
  const LinkReport report = {LinkKind::Refused, 0, 0, 0, step, errno, {}};
  posix::SendMessage(start.report, &report, sizeof report, nullptr, 0);
  _exit(127);
}

bool WriteWholeFile(const char* path, const char* text) {
  const int file = open(path, O_WRONLY | O_CLOEXEC);
  if (file < 0) return false;
  const bool written = write(file, text, strlen(text)) == static_cast<ssize_t>(strlen(text));
  close(file);
  return written;
}

// "0 OUTSIDE 1": the ordinary user of the PC is root in the phone.
bool WriteIdMap(const char* path, unsigned outside) {
  char text[32] = "0 ";
  char* end = std::to_chars(text + 2, text + sizeof text - 4, outside).ptr;
  strcpy(end, " 1");
  return WriteWholeFile(path, text);
}

void EnterUserNamespace(const PhoneProcessStart& start) {
  const unsigned user = geteuid();
  const unsigned group = getegid();
  if (unshare(CLONE_NEWUSER) != 0) Fail(start, StartStep::UserNamespace);
  if (!WriteWholeFile("/proc/self/setgroups", "deny") || !WriteIdMap("/proc/self/uid_map", user) ||
      !WriteIdMap("/proc/self/gid_map", group)) {
    Fail(start, StartStep::UserNamespace);
  }
}

// Returns true if it took a user namespace.
bool EnterRoot(const PhoneProcessStart& start) {
  const bool allowed = chroot(start.root) == 0;
  if (!allowed) {
    if (errno != EPERM) Fail(start, StartStep::ChangeRoot);
    EnterUserNamespace(start);
    if (chroot(start.root) != 0) Fail(start, StartStep::ChangeRoot);
  }
  if (chdir("/") != 0) Fail(start, StartStep::ChangeRoot);
  return !allowed;
}

// Root in the phone owns its files and signals its processes. It must not load a module into the PC's kernel,
// set its clock, make a device node or leave the root directory.
void KeepHarmlessCapabilities() {
  constexpr uint32_t KEPT = 1u << CAP_CHOWN | 1u << CAP_DAC_OVERRIDE | 1u << CAP_FOWNER | 1u << CAP_FSETID |
                            1u << CAP_KILL | 1u << CAP_SETGID | 1u << CAP_SETUID;
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2] = {};
  if (syscall(SYS_capget, &header, data) != 0) return;
  data[0] = {data[0].effective & KEPT, data[0].permitted & KEPT, 0};
  data[1] = {};
  syscall(SYS_capset, &header, data);
}

void Limit(__rlimit_resource resource, rlim_t value) {
  rlimit limit;
  if (getrlimit(resource, &limit) != 0) return;
  limit.rlim_max = value < limit.rlim_max ? value : limit.rlim_max;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(resource, &limit);
}

// The simulator counts everything now and then. These hold between two counts.
void SetLimits(const PhoneProcessStart& start) {
  // If the PC's memory runs out, a process of the phone goes first.
  WriteWholeFile("/proc/self/oom_score_adj", "1000");
  Limit(RLIMIT_FSIZE, start.largest_file);
  // 1 keeps the kernel from handing a crash to a program of the PC; 0 would not.
  Limit(RLIMIT_CORE, 1);
}

// From Linux 5.14 on, a user's processes are counted in each user namespace by themselves. Before, all those
// of the user on the PC would count.
bool KernelCountsInEachNamespace() {
  utsname kernel;
  int version = 0;
  int part = 0;
  return uname(&kernel) == 0 && sscanf(kernel.release, "%d.%d", &version, &part) == 2 &&
         (version > 5 || (version == 5 && part >= 14));
}

// The control group counts all of the phone's programs together, so it is the better one.
TaskLimit LimitTasks(const PhoneProcessStart& start, bool in_group, bool in_namespace) {
  if (in_group) return TaskLimit::ControlGroup;
  if (!in_namespace || !KernelCountsInEachNamespace()) return TaskLimit::Counting;
  Limit(RLIMIT_NPROC, start.most_tasks);
  return TaskLimit::User;
}

void ResetSignals() {
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) sigaction(number, &action, nullptr);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

void TakeStandardDescriptors(const PhoneProcessStart& start) {
  // Above the standard numbers first: one of the three could lie where another must go.
  int moved[3];
  for (int index = 0; index < 3; ++index) moved[index] = fcntl(start.standard[index], F_DUPFD_CLOEXEC, 10);
  for (int index = 0; index < 3; ++index) dup2(moved[index], index);
}

}  // namespace

void RunPhoneProcess(const PhoneProcessStart& start) {
  ResetSignals();
  setsid();  // so its process group is not the guardian's
  if (start.controls_terminal) ioctl(start.standard[0], TIOCSCTTY, 0);
  TakeStandardDescriptors(start);
  umask(022);
  SetLimits(start);
  const bool in_group = EnterTaskGroup(start.task_group);
  const bool in_namespace = EnterRoot(start);
  Confinement confinement = {0, LimitTasks(start, in_group, in_namespace)};
  KeepHarmlessCapabilities();
  // After the changes of rights, which undo this setting.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  prctl(PR_SET_DUMPABLE, 1);
  if (getppid() != start.guardian) _exit(127);

  confinement.landlock = ConfineByLandlock();
  const int listener = InstallAskingFilter(*start.filters);
  if (listener < 0) Fail(start, StartStep::Filter);
  const LinkReport report = {LinkKind::Started, 0, 0, 0, StartStep::Filter, 0, confinement};
  posix::SendMessage(start.report, &report, sizeof report, &listener, 1);
  close(listener);
  // Started has been said: what fails now ends the process as a program that cannot start.
  if (!InstallConfiningFilter(*start.filters)) _exit(127);

  execve(start.program, start.arguments, start.environment);
  const char* reason = strerrordesc_np(errno);
  for (const char* text : {"cannot start ", start.program, ": ", reason, "\n"}) {
    [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, text, strlen(text));
  }
  _exit(127);
}

}  // namespace simulator
