#include "simulator/supervisor/phone_processes.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <set>
#include <thread>

#include "posix/deadline.h"
#include "posix/file_descriptor.h"
#include "simulator/supervisor/directory_listing.h"

namespace simulator {

namespace {

constexpr size_t PAGE = 4096;

iovec RemotePiece(uint64_t address, size_t size) {
  return {reinterpret_cast<void*>(address), size};
}

// The number after a word such as "pos:" at the start of a line of one of the kernel's process files.
int64_t NumberInFile(const std::string& path, const std::string& word) {
  std::ifstream file(path);
  std::string line;
  while (std::getline(file, line)) {
    if (line.starts_with(word)) return std::strtoll(line.c_str() + word.size(), nullptr, 10);
  }
  return 0;
}

}  // namespace

bool ReadMemory(pid_t thread, uint64_t address, void* bytes, size_t size) {
  const iovec local = {bytes, size};
  const iovec remote = RemotePiece(address, size);
  return process_vm_readv(thread, &local, 1, &remote, 1, 0) == static_cast<ssize_t>(size);
}

bool WriteMemory(pid_t thread, uint64_t address, const void* bytes, size_t size) {
  const iovec local = {const_cast<void*>(bytes), size};
  const iovec remote = RemotePiece(address, size);
  return process_vm_writev(thread, &local, 1, &remote, 1, 0) == static_cast<ssize_t>(size);
}

std::optional<std::string> ReadText(pid_t thread, uint64_t address, size_t limit) {
  std::string text;
  char piece[PAGE];
  while (text.size() < limit) {
    // A piece ends where its page ends: the page after a text may not exist.
    const size_t size = PAGE - address % PAGE;
    if (!ReadMemory(thread, address, piece, size)) return std::nullopt;
    const size_t length = strnlen(piece, size);
    text.append(piece, length);
    if (length < size) return text;
    address += size;
  }
  return std::nullopt;
}

std::optional<std::vector<std::string>> ReadTextList(pid_t thread, uint64_t address, bool narrow) {
  std::vector<std::string> texts;
  if (address == 0) return texts;
  const size_t width = narrow ? 4 : 8;
  while (true) {
    uint64_t text_address = 0;
    if (!ReadMemory(thread, address, &text_address, width)) return std::nullopt;
    if (text_address == 0) return texts;
    std::optional<std::string> text = ReadText(thread, text_address);
    if (!text) return std::nullopt;
    texts.push_back(std::move(*text));
    address += width;
  }
}

std::optional<struct stat> StatDescriptor(pid_t thread, int descriptor) {
  struct stat status;
  if (stat(fmt::format("/proc/{}/fd/{}", thread, descriptor).c_str(), &status) != 0) return std::nullopt;
  return status;
}

int64_t DescriptorPosition(pid_t thread, int descriptor) {
  return NumberInFile(fmt::format("/proc/{}/fdinfo/{}", thread, descriptor), "pos:");
}

pid_t ProcessOf(pid_t thread) {
  return static_cast<pid_t>(NumberInFile(fmt::format("/proc/{}/status", thread), "Tgid:"));
}

pid_t ParentOf(pid_t thread) {
  return static_cast<pid_t>(NumberInFile(fmt::format("/proc/{}/status", thread), "PPid:"));
}

bool IsEmulatorsOwn(pid_t thread, const std::string& emulator) {
  std::error_code gone;
  if (std::filesystem::read_symlink(fmt::format("/proc/{}/exe", thread), gone) != emulator) return false;
  // The kernel lists threads in the order of their start: the process's first, then the one that the emulator
  // starts before it runs any of the program, in a forked process too.
  std::filesystem::directory_iterator threads(fmt::format("/proc/{}/task", ProcessOf(thread)), gone);
  if (gone || threads == std::filesystem::directory_iterator()) return false;
  threads.increment(gone);
  return !gone && threads != std::filesystem::directory_iterator() &&
         threads->path().filename() == std::to_string(thread);
}

namespace {

// The kernel keeps this many characters of a process's name.
constexpr size_t KEPT_NAME = 15;

std::string NameOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/comm");
  std::string name;
  std::getline(file, name);
  return name;
}

}  // namespace

bool IsProcessIn(const std::string& root, pid_t process) {
  std::error_code ignored;
  return process > 0 && std::filesystem::read_symlink(fmt::format("/proc/{}/root", process), ignored) == root;
}

int SignalProcessIn(const std::string& root, pid_t process, int signal) {
  // The descriptor stands for one process; its number may be another's by now.
  const posix::FileDescriptor held(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
  if (!held.IsOpen() || !IsProcessIn(root, process)) return ESRCH;
  return syscall(SYS_pidfd_send_signal, held.Get(), signal, nullptr, 0) == 0 ? 0 : errno;
}

namespace {

// Calls `use(process)` for each as soon as it is found.
template <typename Use>
void ForEachProcessIn(const std::string& root, Use use) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
    const std::string name = entry.path().filename();
    pid_t process = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
    if (error != std::errc() || end != name.data() + name.size()) continue;
    if (IsProcessIn(root, process)) use(process);
  }
}

// Its group stops with it at once. A process that is stopped neither ends nor changes its group, so the
// group's number stays this group's.
void StopGroupOf(const std::string& root, pid_t process, pid_t& last_group) {
  if (SignalProcessIn(root, process, SIGSTOP) != 0) return;
  const pid_t group = getpgid(process);
  if (group > 1 && group != last_group && group != getpgrp()) kill(-group, SIGSTOP);
  last_group = group;
}

}  // namespace

void StopProcessesIn(const std::string& root) {
  const posix::Deadline deadline(std::chrono::seconds(5));
  std::set<pid_t> stopped;
  for (bool more = true; more && !deadline.HasPassed();) {
    more = false;
    pid_t last_group = 0;
    ForEachProcessIn(root, [&](pid_t process) {
      if (!stopped.insert(process).second) return;
      StopGroupOf(root, process, last_group);
      more = true;
    });
  }
}

void ContinueProcessesIn(const std::string& root) {
  ForEachProcessIn(root, [&](pid_t process) { SignalProcessIn(root, process, SIGCONT); });
}

std::vector<pid_t> ProcessesIn(const std::string& root) {
  std::vector<pid_t> processes;
  ForEachProcessIn(root, [&](pid_t process) { processes.push_back(process); });
  return processes;
}

void EndProcessesIn(const std::string& root) {
  StopProcessesIn(root);
  const posix::Deadline deadline(std::chrono::seconds(5));
  for (std::vector<pid_t> processes; !(processes = ProcessesIn(root)).empty() && !deadline.HasPassed();) {
    for (const pid_t process : processes) SignalProcessIn(root, process, SIGKILL);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

std::vector<pid_t> ProcessesNamed(const std::vector<pid_t>& processes, const std::string& name) {
  std::vector<pid_t> named;
  for (const pid_t process : processes) {
    if (NameOf(process) == name.substr(0, KEPT_NAME)) named.push_back(process);
  }
  return named;
}

std::string ReadProcessFile(pid_t process, const std::string& name) {
  const posix::FileDescriptor file(
      open(fmt::format("/proc/{}/{}", process, name).c_str(), O_RDONLY | O_CLOEXEC));
  std::string text;
  char piece[4096];
  ssize_t size;
  while ((size = read(file.Get(), piece, sizeof piece)) > 0) text.append(piece, static_cast<size_t>(size));
  return text;
}

namespace {

// Calls `use(child)` for each child of each thread. Returns the number of threads.
template <typename Use>
unsigned ForEachChild(pid_t process, Use use) {
  unsigned threads = 0;
  const Listing tasks(AT_FDCWD, fmt::format("/proc/{}/task", process).c_str());
  tasks.ForEachEntry([&](const char* thread) {
    ++threads;
    const std::string children = ReadProcessFile(process, fmt::format("task/{}/children", thread));
    char* rest = nullptr;
    for (const char* next = children.c_str();; next = rest) {
      const long child = std::strtol(next, &rest, 10);
      if (rest == next) break;
      use(static_cast<pid_t>(child));
    }
  });
  return threads;
}

}  // namespace

Descendants DescendantsOf(pid_t ancestor, unsigned most) {
  Descendants found;
  std::set<pid_t> seen;
  std::vector<pid_t> waiting;
  const auto note = [&](pid_t child) {
    if (seen.insert(child).second) waiting.push_back(child);
  };
  // A child of a process that has ended meanwhile is the ancestor's by now.
  for (ForEachChild(ancestor, note); !waiting.empty() && found.tasks <= most; ForEachChild(ancestor, note)) {
    while (!waiting.empty() && found.tasks <= most) {
      const pid_t process = waiting.back();
      waiting.pop_back();
      found.processes.push_back(process);
      found.tasks += ForEachChild(process, note);
    }
  }
  return found;
}

std::vector<pid_t> DescendantsIn(const std::string& root, pid_t ancestor) {
  std::vector<pid_t> processes = DescendantsOf(ancestor, std::numeric_limits<unsigned>::max()).processes;
  std::erase_if(processes, [&root](pid_t process) { return !IsProcessIn(root, process); });
  std::ranges::sort(processes);
  return processes;
}

}  // namespace simulator
