#include "simulator/supervisor/seccomp_filter.h"

#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "simulator/supervisor/call_table.h"

namespace simulator {
namespace {

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

enum class Purpose { Asking, Confining };

// Of several filters the strictest answer counts: the asking one lets pass what the confining one refuses.
uint32_t ActionOf(const CallRow& row, Purpose purpose) {
  const bool asking = purpose == Purpose::Asking;
  if (row.verdict == Verdict::Ask && asking) return SECCOMP_RET_USER_NOTIF;
  if (row.verdict == Verdict::Refuse && !asking) return SECCOMP_RET_ERRNO | static_cast<uint32_t>(row.error);
  return SECCOMP_RET_ALLOW;
}

void AddRow(std::vector<sock_filter>& filter, const CallRow& row, uint32_t action) {
  const auto number = static_cast<uint32_t>(row.number);
  if (row.mask == 0) {
    filter.insert(filter.end(), {UnlessEqualSkip(number, 1), Return(action)});
    return;
  }
  const size_t word = row.high_word ? HighWord(row.argument) : LowWord(row.argument);
  filter.insert(filter.end(),
                {UnlessEqualSkip(number, 5), Load(word), Statement(BPF_ALU | BPF_AND | BPF_K, row.mask),
                 UnlessEqualSkip(row.value, 1), Return(action), Load(offsetof(seccomp_data, nr))});
}

std::vector<sock_filter> MakeFilter(Purpose purpose) {
  const uint32_t other = purpose == Purpose::Asking ? SECCOMP_RET_ALLOW : SECCOMP_RET_ERRNO | ENOSYS;
  std::vector<sock_filter> filter = {Load(offsetof(seccomp_data, arch))};
  for (const Architecture& architecture : Architectures()) {
    std::vector<sock_filter> calls = {Load(offsetof(seccomp_data, nr))};
    if (!architecture.narrow) {
      calls.push_back({BPF_JMP | BPF_JGE | BPF_K, 0, 1, X32_CALLS});
      calls.push_back(Return(SECCOMP_RET_ERRNO | ENOSYS));
    }
    for (const std::span<const CallRow> rows : {architecture.rows.common, architecture.rows.own}) {
      for (const CallRow& row : rows) AddRow(calls, row, ActionOf(row, purpose));
    }
    calls.push_back(Return(other));
    // A conditional jump does not reach over so many statements.
    filter.push_back({BPF_JMP | BPF_JEQ | BPF_K, 1, 0, architecture.audit_number});
    filter.push_back(Statement(BPF_JMP | BPF_JA, static_cast<uint32_t>(calls.size())));
    filter.insert(filter.end(), calls.begin(), calls.end());
  }
  filter.push_back(Return(SECCOMP_RET_ERRNO | ENOSYS));
  return filter;
}

}  // namespace

SystemCallFilters MakeSystemCallFilters() {
  return {MakeFilter(Purpose::Asking), MakeFilter(Purpose::Confining)};
}

bool InstallConfiningFilter(const SystemCallFilters& filters) {
  const sock_fprog program = {static_cast<unsigned short>(filters.confining.size()),
                              const_cast<sock_filter*>(filters.confining.data())};
  return syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) == 0;
}

int InstallAskingFilter(const SystemCallFilters& filters) {
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return -1;
  const sock_fprog program = {static_cast<unsigned short>(filters.asking.size()),
                              const_cast<sock_filter*>(filters.asking.data())};
  // Where the kernel can (5.19), a call that waits for its answer is interrupted by deadly signals only.
  const long listener =
      syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
              SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV, &program);
  if (listener >= 0 || errno != EINVAL) return static_cast<int>(listener);
  return static_cast<int>(
      syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

}  // namespace simulator
