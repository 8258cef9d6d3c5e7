#include "tests/phone/programs/hostile_ways.h"

#include <fcntl.h>
#include <linux/keyctl.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/timex.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

void TryProcess(const char* who, pid_t process) {
  const auto way = [who](const char* call) { return std::string(call) + " of " + who; };
  char bytes[256] = {};
  for (const int signal : {0, SIGSTOP, SIGTERM, SIGKILL}) {
    Try(way("kill").c_str(), SYS_kill, process, signal);
    // The group of number 1 would be everybody, who is tried below.
    if (process != 1) Try(way("kill of the group").c_str(), SYS_kill, -process, signal);
    Try(way("tgkill").c_str(), SYS_tgkill, process, process, signal);
    Try(way("tkill").c_str(), SYS_tkill, process, signal);
    Try(way("rt_sigqueueinfo").c_str(), SYS_rt_sigqueueinfo, process, signal, bytes);
    Try(way("rt_tgsigqueueinfo").c_str(), SYS_rt_tgsigqueueinfo, process, process, signal, bytes);
    Report(way("kill by 32 bits").c_str(), Call32(37, process, signal) >= 0);
#ifdef __x86_64__  // elsewhere such a number ends the program
    Try(way("kill by the x32 entry").c_str(), 0x40000000 | SYS_kill, process, signal);
#endif
  }
  const long handle = syscall(SYS_pidfd_open, process, 0);
  Report(way("pidfd_open").c_str(), handle >= 0);
  Try(way("pidfd_send_signal").c_str(), SYS_pidfd_send_signal, handle, SIGSTOP, nullptr, 0);
  Try(way("pidfd_getfd").c_str(), SYS_pidfd_getfd, handle, 0, 0);
  Try(way("ptrace attach").c_str(), SYS_ptrace, PTRACE_ATTACH, process, 0, 0);
  Try(way("ptrace seize").c_str(), SYS_ptrace, PTRACE_SEIZE, process, 0, 0);
  Report(way("ptrace by 32 bits").c_str(), Call32(26, PTRACE_ATTACH, process) >= 0);
  const iovec local = {bytes, 16};
  const iovec remote = {reinterpret_cast<void*>(0x400000), 16};
  Try(way("process_vm_readv").c_str(), SYS_process_vm_readv, process, &local, 1, &remote, 1, 0);
  Try(way("process_vm_writev").c_str(), SYS_process_vm_writev, process, &local, 1, &remote, 1, 0);
  Try(way("process_madvise").c_str(), SYS_process_madvise, handle, &remote, 1, 4, 0);
  Try(way("kcmp").c_str(), SYS_kcmp, process, getpid(), 0, 0, 0);
  Try(way("move_pages").c_str(), SYS_move_pages, process, 0, nullptr, nullptr, nullptr, 0);
  Try(way("migrate_pages").c_str(), SYS_migrate_pages, process, 1, bytes, bytes);
  Try(way("get_robust_list").c_str(), SYS_get_robust_list, process, bytes, bytes + 8);
  rlimit limit = {0, 0};
  Try(way("prlimit").c_str(), SYS_prlimit64, process, RLIMIT_NOFILE, nullptr, &limit);
  Try(way("prlimit, to set").c_str(), SYS_prlimit64, process, RLIMIT_CORE, &limit, nullptr);
  Try(way("setpriority").c_str(), SYS_setpriority, PRIO_PROCESS, process, 19);
  Try(way("ioprio_set").c_str(), SYS_ioprio_set, 1, process, 3 << 13);
  bytes[0] = 1;
  Try(way("sched_setaffinity").c_str(), SYS_sched_setaffinity, process, 8, bytes);
  Try(way("sched_getaffinity").c_str(), SYS_sched_getaffinity, process, sizeof bytes, bytes);
  int priority = 0;
  Try(way("sched_setscheduler").c_str(), SYS_sched_setscheduler, process, SCHED_BATCH, &priority);
  Try(way("sched_getscheduler").c_str(), SYS_sched_getscheduler, process);
  Try(way("sched_setattr").c_str(), SYS_sched_setattr, process, bytes, 0);
  Try(way("getsid").c_str(), SYS_getsid, process);
  Try(way("getpgid").c_str(), SYS_getpgid, process);
  Try(way("setpgid into its group").c_str(), SYS_setpgid, 0, process);
  Try(way("setpgid").c_str(), SYS_setpgid, process, process);
  for (const char* name : {"oom_score_adj", "environ", "maps", "mem", "cmdline", "status", "exe", "comm",
                           "fd/0", "root/etc/passwd", "cwd/x", "ns/user", "uid_map", "stat", "auxv", "wchan",
                           "coredump_filter", "clear_refs", "timerslack_ns"}) {
    const std::string path = "/proc/" + std::to_string(process) + "/" + name;
    Report(("reading " + path).c_str(), open(path.c_str(), O_RDONLY) >= 0);
    Report(("writing " + path).c_str(), open(path.c_str(), O_WRONLY) >= 0);
    Report(("linking " + path).c_str(), readlink(path.c_str(), bytes, sizeof bytes) >= 0);
  }
}

void TryEverybody() {
  Try("setpriority of the user", SYS_setpriority, PRIO_USER, 0, 19);
  Try("setpriority of the group", SYS_setpriority, PRIO_PGRP, 0, 19);
  Try("ioprio_set of the user", SYS_ioprio_set, 3, 0, 3 << 13);
  Try("ptrace of the parent as the tracer", SYS_ptrace, PTRACE_TRACEME, 0, 0, 0);
  // A signal to all: the victim must not get it. The program itself does not, by the call's own meaning.
  syscall(SYS_kill, -1, SIGCONT);
  syscall(SYS_kill, -1, SIGUSR1);
  Report("kill of all", false);
}

void TrySockets(int port, const char* socket_name) {
  sockaddr_in inet = {};
  inet.sin_family = AF_INET;
  inet.sin_port = htons(static_cast<uint16_t>(port));
  inet.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int tcp = socket(AF_INET, SOCK_STREAM, 0);
  Report("a TCP socket", tcp >= 0);
  Report("connect to TCP", connect(tcp, reinterpret_cast<sockaddr*>(&inet), sizeof inet) == 0);
  inet.sin_port = 0;
  Report("bind to TCP", bind(tcp, reinterpret_cast<sockaddr*>(&inet), sizeof inet) == 0);
  sockaddr_un unix_address = {};
  unix_address.sun_family = AF_UNIX;
  strncpy(unix_address.sun_path + 1, socket_name, sizeof unix_address.sun_path - 2);
  const int local = socket(AF_UNIX, SOCK_STREAM, 0);
  Report("a local socket", local >= 0);
  Report("connect to an abstract socket",
         connect(local, reinterpret_cast<sockaddr*>(&unix_address),
                 static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + strlen(socket_name))) == 0);
  for (const int family :
       {AF_INET, AF_INET6, AF_NETLINK, AF_PACKET, AF_VSOCK, AF_ALG, AF_BLUETOOTH, AF_CAN}) {
    for (const int type : {SOCK_STREAM, SOCK_DGRAM, SOCK_RAW}) {
      Try("another socket", SYS_socket, family, type, 0);
      long arguments[] = {family, type, 0};
      Report("a socket by socketcall", Call32(102, 1, reinterpret_cast<long>(arguments)) >= 0);
      Report("a socket by 32 bits", Call32(359, family, type, 0) >= 0);
    }
  }
  int pair[2];
  Try("a socket pair", SYS_socketpair, AF_UNIX, SOCK_STREAM, 0, pair);
  // The descriptors that the phone hands out: none takes a message with descriptors.
  const int touch = open("/dev/touchscreen/tsc2046", O_RDONLY);
  char byte = 0;
  iovec part = {&byte, 1};
  msghdr message = {};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  Try("sendmsg to the simulator", SYS_sendmsg, touch, &message, 0);
  Try("recvmsg from the simulator", SYS_recvmsg, touch, &message, MSG_DONTWAIT);
  mmsghdr messages = {message, 0};
  Try("sendmmsg", SYS_sendmmsg, touch, &messages, 1, 0);
  Try("shutdown", SYS_shutdown, touch, 2);
  // The kernel would signal the owner of a socket.
  const int owner = getppid();
  for (const int socket : {touch, open("/dev/sound/dsp", O_WRONLY)}) {
    for (const long request : {0x8901, 0x8902})
      Try("the owner of a socket", SYS_ioctl, socket, request, &owner);
  }
}

void TrySharedObjects(int shared_memory) {
  Report("shared memory", syscall(SYS_shmat, shared_memory, nullptr, 0) > 0);
  Report("shared memory by 32 bits", Call32(397, shared_memory) > 0);
  Try("new shared memory", SYS_shmget, 0, 4096, 01600);
  Try("removal of shared memory", SYS_shmctl, shared_memory, 0, nullptr);
  Try("semaphores", SYS_semget, 0, 1, 01600);
  Try("messages", SYS_msgget, 0, 01600);
  for (long call = 1; call < 25; ++call) Report("ipc", Call32(117, call, 0, 4096, 01600) > 0);
  Try("a message queue", SYS_mq_open, "x", O_RDWR | O_CREAT, 0600, nullptr);
  Try("a key", SYS_add_key, "user", "x", "x", 1, KEY_SPEC_USER_KEYRING);
  Try("asking for a key", SYS_request_key, "user", "x", nullptr, KEY_SPEC_USER_KEYRING);
  for (int command = 0; command < 32; ++command) {
    Try("keyctl", SYS_keyctl, command, KEY_SPEC_USER_KEYRING, 0, 0, 0);
  }
  char bytes[512] = {};
  Try("io_uring", SYS_io_uring_setup, 1, bytes);
  Try("asynchronous input", SYS_io_setup, 1, bytes);
  Try("userfaultfd", SYS_userfaultfd, 1);
  Try("bpf", SYS_bpf, 0, bytes, 64);
  Try("perf", SYS_perf_event_open, bytes, 0, -1, -1, 0);
  Try("epoll", SYS_epoll_create1, 0);
  Try("memory with a descriptor", SYS_memfd_create, "x", 0);
  Try("secret memory", 447, 0);
  Try("locked memory", SYS_mlockall, 3);
  const iovec part = {bytes, 1};
  Try("vmsplice", SYS_vmsplice, 1, &part, 1, 0);
  Try("tee", SYS_tee, 0, 1, 1, 0);
  int pipe_ends[2];
  if (pipe(pipe_ends) == 0) Try("a larger pipe", SYS_fcntl, pipe_ends[0], F_SETPIPE_SZ, 1 << 20);
}

void TryKernel() {
  char bytes[512] = {};
  for (const int flag : {CLONE_NEWUSER, CLONE_NEWNS, CLONE_NEWPID, CLONE_NEWNET, CLONE_NEWIPC, CLONE_NEWUTS,
                         CLONE_NEWCGROUP}) {
    Try("unshare", SYS_unshare, flag);
    const long child = syscall(SYS_clone, flag | SIGCHLD, 0, 0, 0, 0);
    if (child == 0) _exit(0);
    Report("clone into a namespace", child > 0);
    const long narrow = Call32(120, flag | SIGCHLD);
    if (narrow == 0) _exit(0);
    Report("clone into a namespace by 32 bits", narrow > 0);
    struct {
      uint64_t flags, pidfd, child, parent, exit_signal, stack, stack_size, tls;
    } how = {static_cast<uint64_t>(flag), 0, 0, 0, SIGCHLD, 0, 0, 0};
    const long another = syscall(SYS_clone3, &how, sizeof how);
    if (another == 0) _exit(0);
    Report("clone3 into a namespace", another > 0);
    Try("setns", SYS_setns, 0, flag);
  }
  const long sibling = syscall(SYS_clone, CLONE_PARENT | SIGCHLD, 0, 0, 0, 0);
  if (sibling == 0) _exit(0);
  Report("clone as the guardian's child", sibling > 0);
  Try("a module", SYS_init_module, bytes, 0, "");
  Try("a module's file", SYS_finit_module, 0, "", 0);
  Try("removal of a module", SYS_delete_module, "x", 0);
  Try("kexec", SYS_kexec_load, 0, 0, nullptr, 0);
  Try("the kernel's log", SYS_syslog, 10, nullptr, 0);
  Try("sethostname", SYS_sethostname, "x", 1);
  Try("setdomainname", SYS_setdomainname, "x", 1);
#ifdef SYS_iopl  // not on ARM
  Try("iopl", SYS_iopl, 3);
  Try("ioperm", SYS_ioperm, 0, 1, 1);
#endif
  timex times = {};
  times.modes = ADJ_STATUS;
  Try("adjtimex", SYS_adjtimex, &times);
  Try("clock_adjtime", SYS_clock_adjtime, CLOCK_REALTIME, &times);
  Try("vhangup", SYS_vhangup);
  Try("a filter of its own", SYS_seccomp, 1, 8, bytes);
  Try("another filter", SYS_prctl, 22, 2, bytes);
  Try("a listener", SYS_seccomp, 3, 0, bytes);
  Try("landlock", SYS_landlock_create_ruleset, nullptr, 0, 1);
  Try("the scheduler's cookie", SYS_prctl, 62, 1, getppid(), 0, 0);
  Try("memory descriptions", SYS_prctl, 35, 1, 0, 0, 0);
  Try("capabilities", SYS_prctl, 47, 2, 21, 0, 0);
  Try("a lookup of a cookie", SYS_lookup_dcookie, 1, bytes, 1);
  struct {
    uint32_t version;
    int process;
  } header = {0x20080522, 0};
  uint32_t wanted[6] = {1u << 21 | 1u << 18, 1u << 21 | 1u << 18, 0, 0, 0, 0};
  Try("capset", SYS_capset, &header, wanted);
}

}  // namespace

void TryProcessesAndKernel(pid_t victim, int port, const char* socket_name, int shared_memory) {
  signal(SIGUSR1, SIG_IGN);
  TryProcess("the victim", victim);
  TryProcess("the parent", getppid());
  TryProcess("init", 1);
  TryEverybody();
  TrySockets(port, socket_name);
  TrySharedObjects(shared_memory);
  TryKernel();
}
