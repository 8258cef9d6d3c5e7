#include "tests/phone/rights.h"

#include <linux/audit.h>
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <vector>

#include "tests/phone/processes.h"

namespace {

constexpr unsigned ORDINARY_USER = 65534;

// What a container engine leaves to root by default.
constexpr int CONTAINER_CAPABILITIES[] = {
    CAP_CHOWN,   CAP_DAC_OVERRIDE,     CAP_FOWNER,  CAP_FSETID,     CAP_KILL,  CAP_SETGID,      CAP_SETUID,
    CAP_SETPCAP, CAP_NET_BIND_SERVICE, CAP_NET_RAW, CAP_SYS_CHROOT, CAP_MKNOD, CAP_AUDIT_WRITE, CAP_SETFCAP};

uint64_t ContainerCapabilities() {
  uint64_t set = 0;
  for (int number : CONTAINER_CAPABILITIES) set |= uint64_t{1} << number;
  return set;
}

}  // namespace

bool KeepCapabilities(uint64_t kept) {
  for (int number = 0; number <= CAP_LAST_CAP; ++number) {
    if ((kept >> number & 1) == 0) prctl(PR_CAPBSET_DROP, number);
  }
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  const auto low = static_cast<uint32_t>(kept);
  const auto high = static_cast<uint32_t>(kept >> 32);
  const __user_cap_data_struct data[2] = {{low, low, 0}, {high, high, 0}};
  return syscall(SYS_capset, &header, data) == 0;
}

// Refuses what a container engine's own filter refuses to a process without CAP_SYS_ADMIN, and Landlock.
bool RefuseMountsAndNamespaces() {
  constexpr uint32_t NAMESPACES = CLONE_NEWNS | CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWUTS |
                                  CLONE_NEWIPC | CLONE_NEWCGROUP;
  std::vector<sock_filter> filter = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
  };
  for (const int number : {SYS_mount, SYS_umount2, SYS_pivot_root, SYS_unshare, SYS_setns, SYS_move_mount,
                           SYS_fsopen, SYS_open_tree, SYS_landlock_create_ruleset}) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(number), 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM));
  }
  // The flags of clone3 lie in memory, which a filter cannot read: so the call does not exist here.
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone3, 0, 1));
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS));
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 0, 3));
  filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])));
  filter.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, NAMESPACES, 0, 1));
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM));
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) == 0;
}

bool BecomeOrdinaryUser() {
  return setresgid(ORDINARY_USER, ORDINARY_USER, ORDINARY_USER) == 0 &&
         setresuid(ORDINARY_USER, ORDINARY_USER, ORDINARY_USER) == 0 && prctl(PR_SET_DUMPABLE, 1) == 0;
}

bool UserNamespacesAreAllowed() {
  return InChild([] { return BecomeOrdinaryUser() && unshare(CLONE_NEWUSER) == 0 ? 0 : 1; }) == 0;
}

// A container sees the control groups, but cannot change them. Where even this is not allowed, that holds
// already.
void CloseControlGroups() {
  if (unshare(CLONE_NEWNS) != 0) return;
  mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
  mount("tmpfs", "/sys/fs/cgroup", "tmpfs", MS_RDONLY, nullptr);
}

bool BecomeContainersRoot() {
  CloseControlGroups();
  return KeepCapabilities(ContainerCapabilities()) && RefuseMountsAndNamespaces();
}
