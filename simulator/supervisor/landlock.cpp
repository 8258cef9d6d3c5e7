#include "simulator/supervisor/landlock.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace simulator {
namespace {

// The header of the distribution ends at version 2. The kernel takes a record that is longer than its own if
// the rest is 0.
struct RulesetRecord {
  uint64_t files;
  uint64_t network;  // version 4
  uint64_t scopes;   // version 6
};
static_assert(sizeof(RulesetRecord) == 24);

constexpr uint64_t FILES_VERSION_2 = (1ULL << 14) - 1;  // execute (bit 0) to refer (bit 13)
constexpr uint64_t TRUNCATE = 1ULL << 14;               // version 3
constexpr uint64_t DEVICE_REQUEST = 1ULL << 15;         // version 5
constexpr uint64_t TCP_BIND = 1ULL << 0;
constexpr uint64_t TCP_CONNECT = 1ULL << 1;
constexpr uint64_t ABSTRACT_SOCKETS = 1ULL << 0;
constexpr uint64_t SIGNALS = 1ULL << 1;

static_assert(LANDLOCK_ACCESS_FS_REFER == 1ULL << 13);

// Version 1 cannot allow that a file moves to another directory, which the phone's programs do.
constexpr long LOWEST_VERSION = 2;

bool Restrict(const RulesetRecord& record) {
  const auto ruleset = static_cast<int>(syscall(SYS_landlock_create_ruleset, &record, sizeof record, 0));
  if (ruleset < 0) return false;
  // A device file in the root directory is none of the phone's: those are handed in, already open.
  landlock_path_beneath_attr beneath = {record.files & ~DEVICE_REQUEST,
                                        open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)};
  const bool restricted =
      syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &beneath, 0) == 0 &&
      syscall(SYS_landlock_restrict_self, ruleset, 0) == 0;
  close(beneath.parent_fd);
  close(ruleset);
  return restricted;
}

}  // namespace

uint32_t ConfineByLandlock() {
  const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  if (version < LOWEST_VERSION || prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return 0;
  RulesetRecord record = {FILES_VERSION_2, 0, 0};
  uint32_t scopes = LANDLOCK_FILES;
  if (version >= 3) record.files |= TRUNCATE;
  if (version >= 4) {
    record.network = TCP_BIND | TCP_CONNECT;
    scopes |= LANDLOCK_TCP;
  }
  if (version >= 5) {
    record.files |= DEVICE_REQUEST;
    scopes |= LANDLOCK_DEVICES;
  }
  if (version >= 6) {
    record.scopes = ABSTRACT_SOCKETS | SIGNALS;
    scopes |= LANDLOCK_SIGNALS | LANDLOCK_SOCKETS;
  }
  return Restrict(record) ? scopes : 0;
}

std::string LandlockText(uint32_t scopes) {
  struct Name {
    uint32_t scope;
    const char* text;
  };
  std::string text;
  for (const Name& name :
       {Name{LANDLOCK_FILES, "files"}, Name{LANDLOCK_TCP, "TCP"}, Name{LANDLOCK_DEVICES, "driver requests"},
        Name{LANDLOCK_SIGNALS, "signals"}, Name{LANDLOCK_SOCKETS, "abstract sockets"}}) {
    if ((scopes & name.scope) != 0) text += (text.empty() ? "" : ", ") + std::string(name.text);
  }
  return text;
}

}  // namespace simulator
