#include "simulator/supervisor/call_table.h"

#include <asm/unistd_64.h>
#include <linux/audit.h>

namespace simulator {
namespace {

constexpr CallNumber X86_64_CALLS[] = {
    {__NR_open, Call::Open},
    {__NR_openat, Call::OpenAt},
    {__NR_openat2, Call::OpenAt2},
    {__NR_creat, Call::Create},
    {__NR_readlink, Call::ReadLink},
    {__NR_readlinkat, Call::ReadLinkAt},
    {__NR_execve, Call::Exec},
    {__NR_execveat, Call::ExecAt},
    {__NR_clock_nanosleep, Call::Sleep},
    {__NR_settimeofday, Call::SetTimeOfDay},
    {__NR_clock_settime, Call::SetClock},
    {__NR_reboot, Call::Reboot},
    {__NR_ioctl, Call::DeviceRequest},
    {__NR_pread64, Call::CarriedRequest},
    {__NR_clone, Call::Clone},
    {__NR_clone3, Call::CloneWith},
    {__NR_sendfile, Call::CopyBetween},
    {__NR_splice, Call::CopyBetween},
};

}  // namespace

const Architecture* FindArchitecture(uint32_t audit_number) {
  for (const Architecture& architecture : Architectures()) {
    if (architecture.audit_number == audit_number) return &architecture;
  }
  return nullptr;
}

std::span<const Architecture> Architectures() {
  static const Architecture ARCHITECTURES[] = {
      {AUDIT_ARCH_X86_64, X86_64_CALLS, false},
      {AUDIT_ARCH_I386, NarrowCalls(), true},
  };
  return ARCHITECTURES;
}

const CallNumber* FindCall(const Architecture& architecture, int number) {
  for (const CallNumber& call : architecture.calls) {
    if (call.number == number) return &call;
  }
  return nullptr;
}

}  // namespace simulator
