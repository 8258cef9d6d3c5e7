// The rows for calls that both word sizes have under one name. Included after the header that numbers them.
#pragma once

#include <fcntl.h>
#include <linux/ptrace.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include "simulator/supervisor/call_table.h"

namespace simulator {
namespace {

// A namespace would hand out capabilities; CLONE_PARENT would make a process the guardian's own child.
constexpr uint32_t REFUSED_CLONE_FLAGS = CLONE_NEWNS | CLONE_NEWCGROUP | CLONE_NEWUTS | CLONE_NEWIPC |
                                         CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET | CLONE_PARENT |
                                         CLONE_PTRACE;
// A set-ID program in the phone's directory would work for every user of the PC.
constexpr uint32_t SET_ID_BITS = S_ISUID | S_ISGID;
constexpr uint32_t NODE_BITS = S_IFMT | SET_ID_BITS;
constexpr uint32_t REQUEST_TYPE = 0xFF00;
constexpr uint32_t TERMINAL_REQUESTS = 0x5400;
constexpr uint32_t TYPE_INTO_TERMINAL = 0x5412;   // TIOCSTI
constexpr uint32_t LINUX_CONSOLE = 0x541C;        // TIOCLINUX
constexpr uint32_t TAKE_CONSOLE = 0x541D;         // TIOCCONS
constexpr uint32_t SET_LINE_DISCIPLINE = 0x5423;  // TIOCSETD
// The upper word of the place at which an ARM program's driver request is a read (phone/carried_request.c).
constexpr uint32_t CARRIED_REQUEST = 0x70680000;
constexpr uint32_t SET_POINTER_TRACER = 0x59616D61;  // PR_SET_PTRACER
constexpr uint32_t SET_MEMORY_NAME = 0x53564D41;     // PR_SET_VMA

constexpr CallRow COMMON_ROWS[] = {
    // Descriptors that a program has. None of them leads to a directory outside the phone's.
    Allowed(__NR_read), Allowed(__NR_write), Allowed(__NR_readv), Allowed(__NR_writev),
    Allowed(__NR_pwrite64), Allowed(__NR_preadv), Allowed(__NR_pwritev), Allowed(__NR_preadv2),
    Allowed(__NR_pwritev2), Allowed(__NR_lseek), Allowed(__NR_close), Allowed(__NR_close_range),
    Allowed(__NR_dup), Allowed(__NR_dup2), Allowed(__NR_dup3), Allowed(__NR_pipe), Allowed(__NR_pipe2),
    Allowed(__NR_poll), Allowed(__NR_ppoll), Allowed(__NR_select), Allowed(__NR_pselect6),
    Allowed(__NR_fsync), Allowed(__NR_fdatasync), Allowed(__NR_ftruncate), Allowed(__NR_fallocate),
    Allowed(__NR_getdents), Allowed(__NR_getdents64), Allowed(__NR_fstat), Allowed(__NR_fstatfs),
    Allowed(__NR_fchdir), Allowed(__NR_readahead), Refused(__NR_utimensat, EPERM).IfIs(1, 0),
    // While the kernel copies into a pipe it keeps the pipe locked, and the simulator that reads it would
    // wait for the source as well. Programs then read and write.
    Refused(__NR_sendfile, EINVAL), Refused(__NR_splice, EINVAL),
    // The PC's disks are not the phone's.
    Refused(__NR_sync, 0), Refused(__NR_syncfs, 0),
    // What would make the kernel send signals to others, or enlarge a pipe, is not among these.
    Allowed(__NR_fcntl).IfIs(1, F_DUPFD), Allowed(__NR_fcntl).IfIs(1, F_GETFD),
    Allowed(__NR_fcntl).IfIs(1, F_SETFD), Allowed(__NR_fcntl).IfIs(1, F_GETFL),
    Allowed(__NR_fcntl).IfIs(1, F_SETFL), Allowed(__NR_fcntl).IfIs(1, F_DUPFD_CLOEXEC),
    Refused(__NR_fcntl, EINVAL),
    // A terminal's request that types for its user, changes what the terminal is, or takes the PC's console.
    Refused(__NR_ioctl, EPERM).IfIs(1, TYPE_INTO_TERMINAL),
    Refused(__NR_ioctl, EPERM).IfIs(1, SET_LINE_DISCIPLINE),
    Refused(__NR_ioctl, EPERM).IfIs(1, LINUX_CONSOLE), Refused(__NR_ioctl, EPERM).IfIs(1, TAKE_CONSOLE),
    Allowed(__NR_ioctl).If(1, REQUEST_TYPE, TERMINAL_REQUESTS), Asked(__NR_ioctl, Call::DeviceRequest),
    Asked(__NR_fchmod, Call::ChangeMode), Asked(__NR_fchown, Call::ChangeOwner),

    // Paths, which the kernel resolves in the phone's root directory.
    Asked(__NR_open, Call::Open), Asked(__NR_openat, Call::OpenAt), Asked(__NR_creat, Call::Create),
    Asked(__NR_readlink, Call::ReadLink), Asked(__NR_readlinkat, Call::ReadLinkAt), Allowed(__NR_stat),
    Allowed(__NR_lstat), Allowed(__NR_statx), Allowed(__NR_statfs), Allowed(__NR_access),
    Allowed(__NR_faccessat), Allowed(__NR_faccessat2), Allowed(__NR_getcwd), Allowed(__NR_chdir),
    Allowed(__NR_rename), Allowed(__NR_renameat), Allowed(__NR_renameat2), Allowed(__NR_rmdir),
    Allowed(__NR_unlink), Allowed(__NR_unlinkat), Allowed(__NR_link),
    Allowed(__NR_linkat).If(4, AT_EMPTY_PATH, 0), Allowed(__NR_symlink), Allowed(__NR_symlinkat),
    Allowed(__NR_mkdir).If(1, SET_ID_BITS, 0), Refused(__NR_mkdir, EPERM),
    Allowed(__NR_mkdirat).If(2, SET_ID_BITS, 0), Refused(__NR_mkdirat, EPERM),
    Allowed(__NR_mknod).If(1, NODE_BITS, 0), Allowed(__NR_mknod).If(1, NODE_BITS, S_IFREG),
    Allowed(__NR_mknod).If(1, NODE_BITS, S_IFIFO), Refused(__NR_mknod, EPERM),
    Allowed(__NR_mknodat).If(2, NODE_BITS, 0), Allowed(__NR_mknodat).If(2, NODE_BITS, S_IFREG),
    Allowed(__NR_mknodat).If(2, NODE_BITS, S_IFIFO), Refused(__NR_mknodat, EPERM),
    Allowed(__NR_chmod).If(1, SET_ID_BITS, 0), Refused(__NR_chmod, EPERM),
    Allowed(__NR_fchmodat).If(2, SET_ID_BITS, 0), Refused(__NR_fchmodat, EPERM), Allowed(__NR_chown),
    Allowed(__NR_lchown), Allowed(__NR_fchownat).If(4, AT_EMPTY_PATH, 0), Allowed(__NR_truncate),
    Allowed(__NR_utime), Allowed(__NR_utimes),
    // Without a path utimensat is about a descriptor; each word size's own rows go on with it.
    Refused(__NR_utimensat, EINVAL).If(3, AT_EMPTY_PATH, AT_EMPTY_PATH), Allowed(__NR_umask),

    // Memory.
    Allowed(__NR_mprotect), Allowed(__NR_munmap), Allowed(__NR_brk), Allowed(__NR_mremap),
    Allowed(__NR_msync), Allowed(__NR_mincore), Allowed(__NR_madvise),

    // Programs, processes and threads.
    Asked(__NR_execve, Call::Exec), Asked(__NR_execveat, Call::ExecAt),
    // The start of a process is not asked about: a signal would interrupt the call before the simulator has
    // it, and the shell, whose signals do not restart calls, would take that for a failure.
    Asked(__NR_clone, Call::Clone).If(0, REFUSED_CLONE_FLAGS | CLONE_THREAD, CLONE_THREAD),
    Allowed(__NR_clone).If(0, REFUSED_CLONE_FLAGS | CLONE_THREAD, 0), Refused(__NR_clone, EPERM),
    // Its flags are in memory. The C libraries then use clone.
    Refused(__NR_clone3, ENOSYS), Allowed(__NR_fork), Allowed(__NR_vfork), Allowed(__NR_exit),
    Allowed(__NR_exit_group), Allowed(__NR_wait4), Allowed(__NR_waitid), Allowed(__NR_set_tid_address),
    Allowed(__NR_set_robust_list), Allowed(__NR_rseq), Allowed(__NR_membarrier), Allowed(__NR_futex),
    Allowed(__NR_sched_yield), Allowed(__NR_sched_getaffinity).IfIs(0, 0),
    Asked(__NR_sched_getaffinity, Call::AskAboutThread), Asked(__NR_sched_getparam, Call::AskAboutThread),
    Asked(__NR_sched_getscheduler, Call::AskAboutThread), Allowed(__NR_sched_get_priority_max),
    Allowed(__NR_sched_get_priority_min), Allowed(__NR_getcpu), Allowed(__NR_eventfd2),
    Allowed(__NR_prctl).IfIs(0, PR_SET_PDEATHSIG), Allowed(__NR_prctl).IfIs(0, PR_GET_DUMPABLE),
    Refused(__NR_prctl, 0).IfIs(0, PR_SET_DUMPABLE), Allowed(__NR_prctl).IfIs(0, PR_SET_NAME),
    Allowed(__NR_prctl).IfIs(0, PR_GET_NAME), Allowed(__NR_prctl).IfIs(0, PR_SET_NO_NEW_PRIVS),
    Allowed(__NR_prctl).IfIs(0, PR_GET_NO_NEW_PRIVS), Refused(__NR_prctl, 0).IfIs(0, SET_POINTER_TRACER),
    Allowed(__NR_prctl).IfIs(0, SET_MEMORY_NAME), Allowed(__NR_prctl).IfIs(0, PR_CAPBSET_READ),
    Refused(__NR_prctl, EINVAL), Allowed(__NR_arch_prctl), Allowed(__NR_personality),

    // Signals: one's own handling of them, and sending them within the phone.
    Allowed(__NR_rt_sigaction), Allowed(__NR_rt_sigprocmask), Allowed(__NR_rt_sigreturn),
    Allowed(__NR_rt_sigpending), Allowed(__NR_rt_sigsuspend), Allowed(__NR_rt_sigtimedwait),
    Allowed(__NR_sigaltstack), Allowed(__NR_pause), Allowed(__NR_alarm), Allowed(__NR_setitimer),
    Allowed(__NR_getitimer), Allowed(__NR_restart_syscall), Asked(__NR_kill, Call::Signal),
    Asked(__NR_tgkill, Call::SignalThread), Asked(__NR_tkill, Call::SignalThreadAlone),
    // The leak sanitizer traces the threads of its program. A tracing parent would be the guardian.
    Refused(__NR_ptrace, EPERM).IfIs(0, PTRACE_TRACEME),
    Asked(__NR_ptrace, Call::Trace).IfIs(0, PTRACE_ATTACH),
    Asked(__NR_ptrace, Call::Trace).IfIs(0, PTRACE_SEIZE), Allowed(__NR_ptrace),

    // Who and where one is.
    Allowed(__NR_getpid), Allowed(__NR_gettid), Allowed(__NR_getppid), Allowed(__NR_getpgrp),
    Asked(__NR_setpgid, Call::LeaveGroup), Asked(__NR_setsid, Call::LeaveGroup),
    Allowed(__NR_getpgid).IfIs(0, 0), Allowed(__NR_getsid).IfIs(0, 0), Refused(__NR_getpgid, ESRCH),
    Refused(__NR_getsid, ESRCH), Allowed(__NR_getuid), Allowed(__NR_geteuid), Allowed(__NR_getgid),
    Allowed(__NR_getegid), Allowed(__NR_getresuid), Allowed(__NR_getresgid), Allowed(__NR_getgroups),
    Allowed(__NR_setuid), Allowed(__NR_setgid), Allowed(__NR_setreuid), Allowed(__NR_setregid),
    Allowed(__NR_setresuid), Allowed(__NR_setresgid), Allowed(__NR_capget), Allowed(__NR_uname),
    Allowed(__NR_sysinfo), Allowed(__NR_getrlimit), Allowed(__NR_setrlimit),
    Allowed(__NR_prlimit64).IfIs(0, 0), Allowed(__NR_getrusage), Allowed(__NR_times), Allowed(__NR_getrandom),

    // Time. The clock is the PC's and stays as it is.
    Allowed(__NR_gettimeofday), Allowed(__NR_time), Allowed(__NR_clock_gettime), Allowed(__NR_clock_getres),
    Allowed(__NR_nanosleep), Asked(__NR_reboot, Call::Reboot)};

}  // namespace
}  // namespace simulator
