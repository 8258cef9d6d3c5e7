#include "simulator/supervisor/call_table.h"

#include <asm/unistd_64.h>
#include <linux/audit.h>

#include "simulator/supervisor/call_rows.h"

namespace simulator {
namespace {

static_assert(__NR_read == 0, "the numbers of this word size");

constexpr CallRow WIDE_ROWS[] = {
    Allowed(__NR_newfstatat),
    Allowed(__NR_mmap),
    Allowed(__NR_fadvise64),
    Allowed(__NR_utimensat),
    Asked(__NR_pread64, Call::CarriedRequest).IfHighWordIs(3, CARRIED_REQUEST),
    Allowed(__NR_pread64),
    Asked(__NR_clock_nanosleep, Call::Sleep),
    Asked(__NR_settimeofday, Call::SetTimeOfDay),
    Asked(__NR_clock_settime, Call::SetClock),
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
      {AUDIT_ARCH_X86_64, {COMMON_ROWS, WIDE_ROWS}, false},
      {AUDIT_ARCH_I386, NarrowCalls(), true},
  };
  return ARCHITECTURES;
}

const CallRow* FindCall(const Architecture& architecture, int number) {
  for (const std::span<const CallRow> rows : {architecture.rows.common, architecture.rows.own}) {
    for (const CallRow& row : rows) {
      if (row.number == number && row.verdict == Verdict::Ask) return &row;
    }
  }
  return nullptr;
}

}  // namespace simulator
