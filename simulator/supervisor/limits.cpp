#include "simulator/supervisor/limits.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <utility>

#include "posix/file_descriptor.h"
#include "simulator/supervisor/directory_listing.h"
#include "simulator/supervisor/task_group.h"

namespace simulator {
namespace {

constexpr uint64_t MIB = 1 << 20;
constexpr int DEEPEST = 64;  // directories inside each other
// The files are counted every so many looks, and at once when the PC's file system has lost so many bytes.
constexpr unsigned LOOKS_BETWEEN = 10;
constexpr uint64_t NOTABLE_BYTES = 8 * MIB;

struct FileUsage {
  uint64_t bytes = 0;
  unsigned files = 0;
  bool too_deep = false;
  // Files that have another name or several openers count once.
  std::set<std::pair<dev_t, ino_t>> seen{};

  void Add(const struct stat& status) {
    if (status.st_nlink != 1 && !S_ISDIR(status.st_mode) &&
        !seen.insert({status.st_dev, status.st_ino}).second) {
      return;
    }
    bytes += static_cast<uint64_t>(status.st_blocks) * 512;
    ++files;
  }
  void AddTree(int parent, const char* name, unsigned most_files, int depth = 0) {
    too_deep = too_deep || depth > DEEPEST;
    if (too_deep) return;
    const Listing listing(parent, name);
    listing.ForEachEntry([&](const char* entry) {
      struct stat status;
      if (files > most_files) return;
      if (fstatat(listing.Descriptor(), entry, &status, AT_SYMLINK_NOFOLLOW) != 0) return;
      Add(status);
      if (S_ISDIR(status.st_mode)) AddTree(listing.Descriptor(), entry, most_files, depth + 1);
    });
  }
  // Files that are open and have no name any more still take their place.
  void AddNameless(pid_t process) {
    const Listing listing(AT_FDCWD, fmt::format("/proc/{}/fd", process).c_str());
    listing.ForEachEntry([&](const char* entry) {
      struct stat status;
      if (fstatat(listing.Descriptor(), entry, &status, 0) != 0) return;
      if (S_ISREG(status.st_mode) && status.st_nlink == 0) Add(status);
    });
  }
};

// Bytes in memory, those that it shares with other processes too.
uint64_t ResidentMemory(pid_t process) {
  unsigned long pages = 0;
  sscanf(ReadProcessFile(process, "statm").c_str(), "%*u %lu", &pages);
  return uint64_t{pages} * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

// The process's own share of what is in memory and in no file. Much slower to read than the above.
uint64_t OwnMemory(pid_t process) {
  const std::string text = ReadProcessFile(process, "smaps_rollup");
  // A program can close this file to an ordinary user. All that it has in memory counts then.
  if (text.empty()) return ResidentMemory(process);
  uint64_t kilobytes = 0;
  for (const std::string word : {"Pss_Anon:", "Pss_Shmem:"}) {
    const size_t place = text.find(word);
    if (place != std::string::npos) kilobytes += std::strtoull(&text[place + word.size()], nullptr, 10);
  }
  return kilobytes * 1024;
}

unsigned MachineTasks() {
  struct sysinfo machine = {};
  sysinfo(&machine);
  return machine.procs;
}

}  // namespace

std::string PhoneLimits::Text() const {
  return fmt::format("{} processes and threads, {} MiB of memory, {} MiB and {} files on the disk", tasks,
                     memory / MIB, disk / MIB, files);
}

std::string LimitWatch::JudgeTasks(Descendants usage, const std::string& task_group) {
  // The group is full at one above the limit.
  if (!task_group.empty() && RefusedStarts(task_group) > 0) {
    usage.tasks = std::max(usage.tasks, limits_.tasks + 1);
  }
  tasks_ = usage.tasks;
  machine_tasks_ = MachineTasks();
  if (usage.tasks <= limits_.tasks) return {};
  return fmt::format("the phone had {} processes and threads, and {} are its limit", usage.tasks,
                     limits_.tasks);
}

std::string LimitWatch::JudgeMemory(const Descendants& usage) const {
  uint64_t memory = 0;
  for (const pid_t process : usage.processes) memory += ResidentMemory(process);
  if (memory <= limits_.memory) return {};
  memory = 0;
  for (const pid_t process : usage.processes) memory += OwnMemory(process);
  if (memory <= limits_.memory) return {};
  return fmt::format("the phone's programs used {} MiB of memory, and {} MiB are their limit", memory / MIB,
                     limits_.memory / MIB);
}

std::string LimitWatch::LookAtStart(pid_t guardian) {
  if (++tasks_ <= limits_.tasks) return {};
  Descendants usage = DescendantsOf(guardian, limits_.tasks);
  ++usage.tasks;
  return JudgeTasks(usage, {});
}

bool LimitWatch::MayHaveTooManyTasks(pid_t guardian) const {
  const unsigned left = limits_.tasks - std::min(tasks_, limits_.tasks);
  const unsigned many = limits_.tasks / 4;
  return MachineTasks() > machine_tasks_ + left / 2 && DescendantsOf(guardian, many).tasks > many;
}

std::string LimitWatch::Look(pid_t guardian, const std::string& task_group) {
  const Descendants usage = DescendantsOf(guardian, limits_.tasks);
  for (std::string excess : {JudgeTasks(usage, task_group), JudgeMemory(usage)}) {
    if (!excess.empty()) return excess;
  }
  return DiskIsDue() ? JudgeDisk(usage) : "";
}

bool LimitWatch::DiskIsDue() {
  struct statvfs system;
  if (fstatvfs(root_.Descriptor(), &system) != 0) return true;
  const uint64_t free_bytes = uint64_t{system.f_bavail} * system.f_frsize;
  // What others gave back must not hide what the phone takes.
  free_bytes_ = std::max(free_bytes_, free_bytes);
  if (free_bytes_ - free_bytes < NOTABLE_BYTES && looks_++ % LOOKS_BETWEEN != 0) return false;
  free_bytes_ = free_bytes;
  return true;
}

std::string LimitWatch::JudgeDisk(const Descendants& usage) {
  FileUsage files;
  files.AddTree(root_.Descriptor(), ".", limits_.files);
  for (const pid_t process : usage.processes) files.AddNameless(process);
  if (files.too_deep) return fmt::format("the phone's directories were more than {} deep", DEEPEST);
  if (files.files > limits_.files) return fmt::format("the phone had more than {} files", limits_.files);
  if (files.bytes <= limits_.disk) return {};
  return fmt::format("the phone's files took {} MiB of the disk, and {} MiB are their limit",
                     files.bytes / MIB, limits_.disk / MIB);
}

void TakeShortTurns() {
  struct {
    uint32_t size, policy;
    uint64_t flags;
    int32_t nice;
    uint32_t priority;
    uint64_t turn, deadline, period;  // nanoseconds
  } attributes = {};
  static_assert(sizeof attributes == 48);
  if (syscall(SYS_sched_getattr, 0, &attributes, sizeof attributes, 0) != 0) return;
  attributes.size = sizeof attributes;
  attributes.turn = 100'000;
  if (attributes.policy == SCHED_OTHER) syscall(SYS_sched_setattr, 0, &attributes, 0);
}

}  // namespace simulator
