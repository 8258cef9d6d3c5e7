// A program that tries to get out of the phone, in every way that its author knew. Started in place of the
// server with what there is to reach outside: VICTIM CANARY TCP-PORT SOCKET-NAME SHARED-MEMORY. Prints each
// way that got out, and last how many it tried.
#include <fcntl.h>
#include <linux/openat2.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/timex.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "tests/phone/programs/hostile_ways.h"

namespace {

struct Targets {
  pid_t victim;
  std::string canary;
  int port;
  std::string socket_name;
  int shared_memory;
};

// Files.

// From a directory up to the PC's root and down to the canary.
void TryDirectory(const char* from, int directory, const Targets& targets) {
  const std::string path = "../../../../../../../../../.." + targets.canary;
  const char* canary = path.c_str();
  const auto way = [from](const char* call) { return std::string(call) + " from " + from; };
  char bytes[256];
  struct stat status;
  const int flags_of_open[] = {O_RDONLY, O_WRONLY, O_PATH, O_RDWR | O_CREAT};
  for (const int flags : flags_of_open) {
    Try(way("openat").c_str(), SYS_openat, directory, canary, flags, 0600);
  }
  open_how how = {};
  Try(way("openat2").c_str(), SYS_openat2, directory, canary, &how, sizeof how);
  Report(way("fstatat").c_str(), fstatat(directory, canary, &status, 0) == 0);
  Try(way("faccessat").c_str(), SYS_faccessat, directory, canary, R_OK);
  Try(way("faccessat2").c_str(), SYS_faccessat2, directory, canary, R_OK, 0);
  Try(way("readlinkat").c_str(), SYS_readlinkat, directory, (path + "-link").c_str(), bytes, sizeof bytes);
  Try(way("mkdirat").c_str(), SYS_mkdirat, directory, (path + "-made").c_str(), 0700);
  Try(way("mknodat").c_str(), SYS_mknodat, directory, (path + "-node").c_str(), S_IFIFO | 0600, 0);
  Try(way("symlinkat").c_str(), SYS_symlinkat, "x", directory, (path + "-symbolic").c_str());
  Try(way("linkat to").c_str(), SYS_linkat, AT_FDCWD, "/etc/passwd", directory, (path + "-hard").c_str(), 0);
  Try(way("linkat from").c_str(), SYS_linkat, directory, canary, AT_FDCWD, "/tmp/linked", 0);
  Try(way("renameat").c_str(), SYS_renameat, directory, canary, directory, (path + "-moved").c_str());
  Try(way("renameat2").c_str(), SYS_renameat2, directory, canary, AT_FDCWD, "/tmp/moved", 0);
  Try(way("unlinkat").c_str(), SYS_unlinkat, directory, canary, 0);
  Try(way("fchmodat").c_str(), SYS_fchmodat, directory, canary, 0777);
  Try(way("fchownat").c_str(), SYS_fchownat, directory, canary, 0, 0, 0);
  Try(way("utimensat").c_str(), SYS_utimensat, directory, canary, nullptr, 0);
  Try(way("statx").c_str(), SYS_statx, directory, canary, 0, 0x7FFU, bytes);
  Try(way("execveat").c_str(), SYS_execveat, directory, "../../../../../../../../bin/true-outside", nullptr,
      nullptr, 0);
  Try(way("name_to_handle_at").c_str(), SYS_name_to_handle_at, directory, "..", bytes, &status, 0);
  const int before = open("/", O_RDONLY | O_DIRECTORY);
  if (fchdir(directory) == 0) {
    Report(way("open after fchdir").c_str(), open(canary, O_RDONLY) >= 0);
    Report(way("truncate after fchdir").c_str(), truncate(canary, 0) == 0);
    Report(way("rename after fchdir").c_str(), rename(canary, (path + "-moved").c_str()) == 0);
    Report(way("chroot after fchdir").c_str(), chroot(".") == 0);
  }
  Report("back to the root", fchdir(before) != 0);
  close(before);
}

void TryDirectories(const Targets& targets) {
  const std::string victim = "/proc/" + std::to_string(targets.victim);
  const std::string own = "/proc/" + std::to_string(getpid());
  const std::string parent = "/proc/" + std::to_string(getppid());
  const std::string paths[] = {"/",
                               "/proc",
                               "/proc/self/task",
                               own + "/task",
                               "/proc/thread-self/task",
                               "/proc/self/task/" + std::to_string(getpid()),
                               "/proc/self/fd",
                               "/proc/self/root",
                               "/proc/self/cwd",
                               "/proc/self/ns",
                               "/proc/self/map_files",
                               victim + "/task",
                               victim + "/root",
                               victim + "/cwd",
                               victim + "/fd",
                               parent + "/task",
                               parent + "/root",
                               "/proc/1/root",
                               "/dev/pts",
                               "/sys",
                               "/tmp"};
  for (const std::string& path : paths) {
    const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY);
    if (directory >= 0) {
      TryDirectory(path.c_str(), directory, targets);
    } else {
      Report(path.c_str(), false);
    }
    close(directory);
  }
  // Other descriptors that the phone hands out.
  for (const char* path :
       {"/dev/null", "/dev/fb/0", "/dev/usb/tts/0", "/proc/self/maps", "/proc/gpio/motor"}) {
    const int file = open(path, O_RDWR);
    TryDirectory(path, file >= 0 ? file : open(path, O_RDONLY), targets);
  }
  for (int descriptor = 0; descriptor < 64; ++descriptor) {
    Report("an open of the canary from an inherited descriptor",
           openat(descriptor, ("../../../../../.." + targets.canary).c_str(), O_RDONLY) >= 0);
  }
}

void TryPaths(const Targets& targets) {
  const char* canary = targets.canary.c_str();
  Report("the canary's path", open(canary, O_RDONLY) >= 0);
  Report("dots before the canary's path",
         open(("/../../../../../../../.." + targets.canary).c_str(), O_RDONLY) >= 0);
  Report("a symbolic link to the canary",
         symlink(canary, "/tmp/canary") == 0 && open("/tmp/canary", O_RDONLY) >= 0);
  Report("a symbolic link up to it",
         symlink(("../../../../../.." + targets.canary).c_str(), "/tmp/up") == 0 &&
             open("/tmp/up", O_RDWR) >= 0);
  mkdir("/tmp/deep", 0700);
  Report("chroot", chroot("/tmp/deep") == 0);
  Report("chroot by 32 bits", Call32(61, reinterpret_cast<long>("/tmp/deep")) == 0);
  char bytes[512] = {};
  Try("mount", SYS_mount, "none", "/tmp", "tmpfs", 0, nullptr);
  Try("mount of proc", SYS_mount, "proc", "/proc", "proc", 0, nullptr);
  Try("a bind mount", SYS_mount, "/", "/tmp/deep", nullptr, 4096, nullptr);
  Try("umount", SYS_umount2, "/", 2);
  Try("pivot_root", SYS_pivot_root, "/", "/tmp");
  Try("open_tree", SYS_open_tree, AT_FDCWD, "/", 1);
  Try("fsopen", SYS_fsopen, "tmpfs", 0);
  Try("fspick", SYS_fspick, AT_FDCWD, "/", 0);
  Try("move_mount", SYS_move_mount, AT_FDCWD, "/", AT_FDCWD, "/tmp", 0);
  Try("mount_setattr", SYS_mount_setattr, AT_FDCWD, "/", 0, bytes, 32);
  Try("open_by_handle_at", SYS_open_by_handle_at, AT_FDCWD, bytes, O_RDONLY);
  Try("mknod of the memory device", SYS_mknod, "/tmp/mem", S_IFCHR | 0600, 0x101);
  Try("mknod of a disk", SYS_mknodat, AT_FDCWD, "/tmp/disk", S_IFBLK | 0600, 0x800);
  Try("mknod of a socket", SYS_mknod, "/tmp/socket", S_IFSOCK | 0600, 0);
  Try("swapon", SYS_swapon, "/tmp/linked", 0);
  Try("acct", SYS_acct, "/tmp/account");
  Try("quotactl", SYS_quotactl, 0, "/", 0, bytes);
  Try("fanotify", SYS_fanotify_init, 0, 0);
  Try("inotify", SYS_inotify_init1, 0);
}

// What is the PC's, although the phone holds it open.

void TryHeldFiles() {
  for (const char* path : {"/dev/null", "/dev/zero", "/dev/urandom", "/dev/usb/tts/0", "/proc/self/status"}) {
    int file = open(path, O_RDWR);
    if (file < 0) file = open(path, O_RDONLY);
    const auto way = [path](const char* call) { return std::string(call) + " of " + path; };
    Try(way("fchmod").c_str(), SYS_fchmod, file, 0777);
    Try(way("fchown").c_str(), SYS_fchown, file, 1, 1);
    Try(way("fchownat").c_str(), SYS_fchownat, file, "", 1, 1, AT_EMPTY_PATH);
    Try(way("fchmodat2").c_str(), 452, file, "", 0777, AT_EMPTY_PATH);
    Try(way("futimens").c_str(), SYS_utimensat, file, nullptr, nullptr, 0);
    Try(way("utimensat").c_str(), SYS_utimensat, file, "", nullptr, AT_EMPTY_PATH);
    Try(way("futimesat").c_str(), SYS_futimesat, file, nullptr, nullptr);
    Try(way("fsetxattr").c_str(), SYS_fsetxattr, file, "user.x", "x", 1, 0);
    Try(way("fremovexattr").c_str(), SYS_fremovexattr, file, "user.x");
    Try(way("flock").c_str(), SYS_flock, file, 2);
    Try(way("linkat").c_str(), SYS_linkat, file, "", AT_FDCWD, "/tmp/held", AT_EMPTY_PATH);
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    Try(way("a lock").c_str(), SYS_fcntl, file, F_SETLK, &lock);
    Try(way("F_SETOWN").c_str(), SYS_fcntl, file, F_SETOWN, getppid());
    Try(way("F_SETSIG").c_str(), SYS_fcntl, file, F_SETSIG, SIGKILL);
    Try(way("F_NOTIFY").c_str(), SYS_fcntl, file, F_NOTIFY, 1);
    const int owner = getppid();
    Try(way("FIOSETOWN").c_str(), SYS_ioctl, file, 0x8901, &owner);
    Try(way("TIOCSETD").c_str(), SYS_ioctl, file, 0x5423, &owner);
    Try(way("FS_IOC_SETFLAGS").c_str(), SYS_ioctl, file, 0x40086602, &owner);
    close(file);
  }
}

// Two threads: one changes what the other one's calls are about, between the check and the use of it.
void TryRaces(const Targets& targets) {
  std::atomic<bool> running = true;
  struct stat before, after;
  stat("/dev/null", &before);
  const int own = open("/tmp/own", O_RDWR | O_CREAT, 0600);
  const int held = open("/dev/null", O_RDWR);
  const int changing = dup(own);
  char path[256] = "/tmp/own";
  open_how how = {};
  struct {
    uint64_t flags, pidfd, child, parent, exit_signal, stack, stack_size, tls;
  } clone_how = {};
  std::thread racer([&] {
    while (running) {
      dup2(held, changing);
      strcpy(path, "/proc/1/environ");
      clone_how.flags = CLONE_NEWUSER;
      dup2(own, changing);
      strcpy(path, "/tmp/own");
      clone_how.flags = 0;
    }
  });
  struct stat null_before;
  fstat(held, &null_before);
  for (int round = 0; round < 500; ++round) {
    fchmod(changing, 0666 | (round & 1));
    fchown(changing, 0, 0);
    const int file = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDONLY));
    char bytes[16];
    if (file >= 0 && strcmp(path, "/tmp/own") != 0) Report("a racing path", read(file, bytes, 16) > 0);
    close(file);
    syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof how);
    const long child = syscall(SYS_clone3, &clone_how, sizeof clone_how);
    if (child == 0) _exit(0);
    if (child > 0) Report("clone3 with racing flags", true);
  }
  running = false;
  racer.join();
  struct stat null_after;
  fstat(held, &null_after);
  stat("/dev/null", &after);
  Report("a racing descriptor", null_before.st_mode != null_after.st_mode ||
                                    null_before.st_ctim.tv_sec != null_after.st_ctim.tv_sec);
  Report("a racing path", targets.canary.empty());
}

void TrySetId() {
  close(open("/tmp/program", O_RDWR | O_CREAT, 0700));
  const auto has_it = [](const char* path) {
    struct stat status;
    return stat(path, &status) == 0 && (status.st_mode & (S_ISUID | S_ISGID)) != 0;
  };
  chmod("/tmp/program", 04755);
  Report("chmod of set-ID", has_it("/tmp/program"));
  fchmodat(AT_FDCWD, "/tmp/program", 06755, 0);
  Report("fchmodat of set-ID", has_it("/tmp/program"));
  const int file = open("/tmp/program", O_RDWR);
  fchmod(file, 04755);
  Report("fchmod of set-ID", has_it("/tmp/program"));
  syscall(452, AT_FDCWD, "/tmp/program", 04755, 0);
  Report("fchmodat2 of set-ID", has_it("/tmp/program"));
  close(file);
  close(open("/tmp/created", O_RDWR | O_CREAT, 04755));
  Report("open of a new set-ID file", has_it("/tmp/created"));
  close(creat("/tmp/created2", 06755));
  Report("creat of a new set-ID file", has_it("/tmp/created2"));
  open_how how = {};
  how.flags = O_RDWR | O_CREAT;
  how.mode = 04755;
  syscall(SYS_openat2, AT_FDCWD, "/tmp/created3", &how, sizeof how);
  Report("openat2 of a new set-ID file", has_it("/tmp/created3"));
  mknod("/tmp/created4", S_IFREG | 04755, 0);
  Report("mknod of a set-ID file", has_it("/tmp/created4"));
  mkdir("/tmp/created5", 02755);
  Report("mkdir of a set-ID directory", has_it("/tmp/created5"));
  Call32(15, reinterpret_cast<long>("/tmp/program"), 04755);
  Report("chmod of set-ID by 32 bits", has_it("/tmp/program"));
  Try("capabilities of a file", SYS_setxattr, "/tmp/program", "security.capability", "x", 1, 0);
}

}  // namespace

int main(int, char** arguments) {
  const Targets targets = {atoi(arguments[1]), arguments[2], atoi(arguments[3]), arguments[4],
                           atoi(arguments[5])};
  setvbuf(stdout, nullptr, _IOLBF, 0);
  TryDirectories(targets);
  TryPaths(targets);
  TryHeldFiles();
  TrySetId();
  TryRaces(targets);
  TryProcessesAndKernel(targets.victim, targets.port, targets.socket_name.c_str(), targets.shared_memory);
  printf("tried %u ways, %u got out\n", ways_tried, ways_out);
  return ways_out == 0 ? 0 : 1;
}
