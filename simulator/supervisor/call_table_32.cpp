// The calls of 32-bit programs. A source of their own: the kernel's headers name the numbers of both word
// sizes alike.
#include <asm/unistd_32.h>

#include "simulator/supervisor/call_rows.h"

namespace simulator {
namespace {

static_assert(__NR_read == 3, "the numbers of this word size");

constexpr TimeWidth OLD = TimeWidth::Bits32;

constexpr CallRow NARROW_ROWS[] = {Allowed(__NR__llseek),
                                   Allowed(__NR__newselect),
                                   Allowed(__NR_ppoll_time64),
                                   Allowed(__NR_pselect6_time64),
                                   Refused(__NR_sendfile64, EINVAL),
                                   Allowed(__NR_ftruncate64),
                                   Allowed(__NR_truncate64),
                                   Allowed(__NR_fcntl64).IfIs(1, F_DUPFD),
                                   Allowed(__NR_fcntl64).IfIs(1, F_GETFD),
                                   Allowed(__NR_fcntl64).IfIs(1, F_SETFD),
                                   Allowed(__NR_fcntl64).IfIs(1, F_GETFL),
                                   Allowed(__NR_fcntl64).IfIs(1, F_SETFL),
                                   Allowed(__NR_fcntl64).IfIs(1, F_DUPFD_CLOEXEC),
                                   Refused(__NR_fcntl64, EINVAL),
                                   Allowed(__NR_stat64),
                                   Allowed(__NR_lstat64),
                                   Allowed(__NR_fstat64),
                                   Allowed(__NR_fstatat64),
                                   Allowed(__NR_statfs64),
                                   Allowed(__NR_fstatfs64),
                                   Allowed(__NR_fadvise64),
                                   Allowed(__NR_pread64),

                                   Allowed(__NR_fadvise64_64),
                                   Asked(__NR_fchown32, Call::ChangeOwner),
                                   Allowed(__NR_chown32),
                                   Allowed(__NR_lchown32),
                                   Refused(__NR_utimensat_time64, EINVAL).If(3, AT_EMPTY_PATH, AT_EMPTY_PATH),

                                   Allowed(__NR_utimensat),
                                   Refused(__NR_utimensat_time64, EPERM).IfIs(1, 0),
                                   Allowed(__NR_utimensat_time64),
                                   Allowed(__NR_mmap),
                                   Allowed(__NR_mmap2),
                                   Allowed(__NR_waitpid),
                                   Allowed(__NR_futex_time64),
                                   Allowed(__NR_set_thread_area),
                                   Allowed(__NR_get_thread_area),
                                   Allowed(__NR_signal),
                                   Allowed(__NR_sigaction),
                                   Allowed(__NR_sigprocmask),
                                   Allowed(__NR_sigpending),
                                   Allowed(__NR_sigsuspend),
                                   Allowed(__NR_sigreturn),
                                   Allowed(__NR_rt_sigtimedwait_time64),
                                   Allowed(__NR_getuid32),
                                   Allowed(__NR_geteuid32),
                                   Allowed(__NR_getgid32),
                                   Allowed(__NR_getegid32),
                                   Allowed(__NR_getresuid32),
                                   Allowed(__NR_getresgid32),
                                   Allowed(__NR_getgroups32),
                                   Allowed(__NR_setuid32),
                                   Allowed(__NR_setgid32),
                                   Allowed(__NR_setreuid32),
                                   Allowed(__NR_setregid32),
                                   Allowed(__NR_setresuid32),
                                   Allowed(__NR_setresgid32),
                                   Allowed(__NR_ugetrlimit),
                                   Allowed(__NR_clock_gettime64),
                                   Allowed(__NR_clock_getres_time64),
                                   Asked(__NR_clock_nanosleep, Call::Sleep, OLD),
                                   Asked(__NR_clock_nanosleep_time64, Call::Sleep),
                                   Asked(__NR_settimeofday, Call::SetTimeOfDay, OLD),
                                   Asked(__NR_clock_settime, Call::SetClock, OLD),
                                   Asked(__NR_clock_settime64, Call::SetClock),
                                   Asked(__NR_stime, Call::SetTime, OLD)};

}  // namespace

CallRows NarrowCalls() {
  return {COMMON_ROWS, NARROW_ROWS};
}

}  // namespace simulator
