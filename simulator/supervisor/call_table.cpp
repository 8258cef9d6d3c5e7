#include "simulator/supervisor/call_table.h"

#include <linux/audit.h>

namespace simulator {
namespace {

// The numbers are the kernel's (arch/x86/entry/syscalls): those of the other word size stand in no header of
// the one that this is compiled for.
constexpr CallNumber X86_64_CALLS[] = {
    {2, Call::Open},           {257, Call::OpenAt},       {437, Call::OpenAt2},   {85, Call::Create},
    {89, Call::ReadLink},      {267, Call::ReadLinkAt},   {59, Call::Exec},       {322, Call::ExecAt},
    {230, Call::Sleep},        {164, Call::SetTimeOfDay}, {227, Call::SetClock},  {169, Call::Reboot},
    {16, Call::DeviceRequest}, {56, Call::Clone},         {435, Call::CloneWith}, {40, Call::CopyBetween},
    {275, Call::CopyBetween},
};

constexpr CallNumber I386_CALLS[] = {
    {5, Call::Open},
    {295, Call::OpenAt},
    {437, Call::OpenAt2},
    {8, Call::Create},
    {85, Call::ReadLink},
    {305, Call::ReadLinkAt},
    {11, Call::Exec},
    {358, Call::ExecAt},
    {267, Call::Sleep, TimeWidth::Bits32},
    {407, Call::Sleep},
    {79, Call::SetTimeOfDay, TimeWidth::Bits32},
    {264, Call::SetClock, TimeWidth::Bits32},
    {404, Call::SetClock},
    {25, Call::SetTime, TimeWidth::Bits32},
    {88, Call::Reboot},
    {54, Call::DeviceRequest},
    {120, Call::Clone},
    {435, Call::CloneWith},
    {187, Call::CopyBetween},
    {239, Call::CopyBetween},
    {313, Call::CopyBetween},
};

constexpr Architecture ARCHITECTURES[] = {
    {AUDIT_ARCH_X86_64, X86_64_CALLS, false},
    {AUDIT_ARCH_I386, I386_CALLS, true},
};

}  // namespace

std::span<const Architecture> Architectures() {
  return ARCHITECTURES;
}

const Architecture* FindArchitecture(uint32_t audit_number) {
  for (const Architecture& architecture : ARCHITECTURES) {
    if (architecture.audit_number == audit_number) return &architecture;
  }
  return nullptr;
}

const CallNumber* FindCall(const Architecture& architecture, int number) {
  for (const CallNumber& call : architecture.calls) {
    if (call.number == number) return &call;
  }
  return nullptr;
}

}  // namespace simulator
