// The calls of 32-bit programs. A source of their own: the kernel's headers name the numbers of both word
// sizes alike.
#include <asm/unistd_32.h>

#include "simulator/supervisor/call_table.h"

namespace simulator {
namespace {

constexpr CallNumber I386_CALLS[] = {
    {__NR_open, Call::Open},
    {__NR_openat, Call::OpenAt},
    {__NR_openat2, Call::OpenAt2},
    {__NR_creat, Call::Create},
    {__NR_readlink, Call::ReadLink},
    {__NR_readlinkat, Call::ReadLinkAt},
    {__NR_execve, Call::Exec},
    {__NR_execveat, Call::ExecAt},
    {__NR_clock_nanosleep, Call::Sleep, TimeWidth::Bits32},
    {__NR_clock_nanosleep_time64, Call::Sleep},
    {__NR_settimeofday, Call::SetTimeOfDay, TimeWidth::Bits32},
    {__NR_clock_settime, Call::SetClock, TimeWidth::Bits32},
    {__NR_clock_settime64, Call::SetClock},
    {__NR_stime, Call::SetTime, TimeWidth::Bits32},
    {__NR_reboot, Call::Reboot},
    {__NR_ioctl, Call::DeviceRequest},
    {__NR_clone, Call::Clone},
    {__NR_clone3, Call::CloneWith},
    {__NR_sendfile, Call::CopyBetween},
    {__NR_sendfile64, Call::CopyBetween},
    {__NR_splice, Call::CopyBetween},
};

}  // namespace

std::span<const CallNumber> NarrowCalls() {
  return I386_CALLS;
}

}  // namespace simulator
