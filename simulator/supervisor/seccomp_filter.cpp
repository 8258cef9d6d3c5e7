#include "simulator/supervisor/seccomp_filter.h"

#include <linux/audit.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "simulator/supervisor/call_table.h"

namespace simulator {
namespace {

// A terminal's own requests are 0x54xx; the kernel answers them on the terminal devices that the phone gets.
constexpr uint32_t REQUEST_TYPE_MASK = 0xFF00;
constexpr uint32_t TERMINAL_REQUESTS = 0x5400;
// The upper word of the place at which an ARM program's driver request is a read (phone/carried_request.c).
constexpr uint32_t CARRIED_REQUEST = 0x70680000;
// Calls of the 64-bit machine's third, 32-bit-pointer interface carry this bit; no program of the phone has
// them.
constexpr uint32_t X32_CALLS = 0x40000000;

constexpr sock_filter Statement(uint16_t code, uint32_t operand) {
  return {code, 0, 0, operand};
}

constexpr sock_filter Load(size_t offset) {
  return Statement(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset));
}

constexpr sock_filter Return(uint32_t action) {
  return Statement(BPF_RET | BPF_K, action);
}

// Skips the next `skipped` statements unless the loaded word is `value`.
constexpr sock_filter UnlessEqualSkip(uint32_t value, uint8_t skipped) {
  return {BPF_JMP | BPF_JEQ | BPF_K, 0, skipped, value};
}

// Where an argument's words are in what the filter sees: the machine is little-endian.
constexpr size_t LowWord(size_t argument) {
  return offsetof(seccomp_data, args) + argument * sizeof(uint64_t);
}
constexpr size_t HighWord(size_t argument) {
  return LowWord(argument) + sizeof(uint32_t);
}

// Notifies of a call where the bits of an argument's word that the mask selects have (or have not) this
// value.
void AddArgumentCheck(std::vector<sock_filter>& filter, uint32_t number, size_t word, uint32_t mask,
                      uint32_t value, bool notified) {
  const uint32_t equal = notified ? SECCOMP_RET_USER_NOTIF : SECCOMP_RET_ALLOW;
  const uint32_t other = notified ? SECCOMP_RET_ALLOW : SECCOMP_RET_USER_NOTIF;
  filter.insert(filter.end(),
                {UnlessEqualSkip(number, 5), Load(word), Statement(BPF_ALU | BPF_AND | BPF_K, mask),
                 UnlessEqualSkip(value, 1), Return(equal), Return(other)});
}

void AddCall(std::vector<sock_filter>& filter, const CallNumber& call) {
  const auto number = static_cast<uint32_t>(call.number);
  if (call.call == Call::DeviceRequest) {
    return AddArgumentCheck(filter, number, LowWord(1), REQUEST_TYPE_MASK, TERMINAL_REQUESTS, false);
  }
  if (call.call == Call::CarriedRequest) {
    return AddArgumentCheck(filter, number, HighWord(3), ~0U, CARRIED_REQUEST, true);
  }
  if (call.call == Call::Clone) {
    return AddArgumentCheck(filter, number, LowWord(0), CLONE_THREAD, CLONE_THREAD, true);
  }
  const uint32_t action =
      call.call == Call::CopyBetween ? SECCOMP_RET_ERRNO | EINVAL : SECCOMP_RET_USER_NOTIF;
  filter.insert(filter.end(), {UnlessEqualSkip(number, 1), Return(action)});
}

}  // namespace

std::vector<sock_filter> MakeSystemCallFilter() {
  std::vector<sock_filter> filter = {Load(offsetof(seccomp_data, arch))};
  for (const Architecture& architecture : Architectures()) {
    std::vector<sock_filter> calls = {Load(offsetof(seccomp_data, nr))};
    if (!architecture.narrow) {
      calls.push_back({BPF_JMP | BPF_JGE | BPF_K, 0, 1, X32_CALLS});
      calls.push_back(Return(SECCOMP_RET_ERRNO | ENOSYS));
    }
    for (const CallNumber& call : architecture.calls) AddCall(calls, call);
    calls.push_back(Return(SECCOMP_RET_ALLOW));
    filter.push_back(UnlessEqualSkip(architecture.audit_number, static_cast<uint8_t>(calls.size())));
    filter.insert(filter.end(), calls.begin(), calls.end());
  }
  filter.push_back(Return(SECCOMP_RET_ERRNO | ENOSYS));
  return filter;
}

int InstallSystemCallFilter(const std::vector<sock_filter>& filter) {
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return -1;
  const sock_fprog program = {static_cast<unsigned short>(filter.size()),
                              const_cast<sock_filter*>(filter.data())};
  // Where the kernel can (5.19), a call that waits for its answer is interrupted by deadly signals only.
  const long listener =
      syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
              SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV, &program);
  if (listener >= 0 || errno != EINVAL) return static_cast<int>(listener);
  return static_cast<int>(
      syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

}  // namespace simulator
