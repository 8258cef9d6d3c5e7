#include "simulator/supervisor/phone_paths.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <string_view>

#include "simulator/supervisor/phone_processes.h"

namespace simulator {
namespace {

std::string ReadLink(const std::string& path) {
  char target[PATH_MAX];
  const ssize_t size = readlink(path.c_str(), target, sizeof target);
  return size > 0 ? std::string(target, static_cast<size_t>(size)) : std::string();
}

// Follows the links of a path inside the root directory; empty when nothing is there.
std::string FollowLinks(const RootDirectory& root, const std::string& path, uint64_t flags) {
  open_how how = {};
  how.flags = O_PATH | O_CLOEXEC | flags;
  how.resolve = RESOLVE_IN_ROOT;
  const posix::FileDescriptor found(
      static_cast<int>(syscall(SYS_openat2, root.Descriptor(), path.c_str(), &how, sizeof how)));
  if (!found.IsOpen()) return {};
  return PhonePath(root, ReadLink(fmt::format("/proc/self/fd/{}", found.Get()))).value_or("");
}

}  // namespace

std::optional<std::string> PhonePath(const RootDirectory& root, const std::string& outside) {
  const std::string& base = root.Path();
  if (!outside.starts_with(base)) return std::nullopt;
  if (outside.size() == base.size()) return "/";
  if (outside[base.size()] != '/') return std::nullopt;
  return outside.substr(base.size());
}

std::optional<std::string> AbsolutePath(const RootDirectory& root, pid_t thread, int directory,
                                        const std::string& path) {
  if (path.starts_with('/')) return path;
  const std::string outside =
      ReadLink(directory == AT_FDCWD ? fmt::format("/proc/{}/cwd", thread)
                                     : fmt::format("/proc/{}/fd/{}", thread, directory));
  const std::optional<std::string> base = PhonePath(root, outside);
  if (!base) return std::nullopt;
  return *base + "/" + path;
}

ResolvedPath ResolvePath(const RootDirectory& root, const std::string& absolute_path, bool follow_last) {
  const std::string found = FollowLinks(root, absolute_path, follow_last ? 0 : O_NOFOLLOW);
  if (!found.empty()) return {found, true};
  const std::filesystem::path path = std::filesystem::path(absolute_path).lexically_normal();
  const std::string parent = FollowLinks(root, path.parent_path(), 0);
  if (parent.empty()) return {path, false};
  return {(std::filesystem::path(parent) / path.filename()).string(), false};
}

std::optional<ProcessFile> FindProcessFile(pid_t thread, const std::string& absolute_path) {
  static constexpr std::string_view READABLE[] = {"maps",    "smaps",   "status", "stat", "comm",
                                                  "environ", "cmdline", "exe",    "auxv", "task"};
  std::string path = std::filesystem::path(absolute_path).lexically_normal();
  if (!path.starts_with("/proc/")) return std::nullopt;
  if (path.ends_with('/')) path.pop_back();
  const size_t name_end = path.find('/', 6);
  if (name_end == std::string::npos) return std::nullopt;
  const std::string name = path.substr(6, name_end - 6);
  const std::string file = path.substr(name_end + 1);
  std::string_view last = file;
  if (last.starts_with("task/")) {
    last.remove_prefix(5);
    const size_t digits = std::min(last.find_first_not_of("0123456789"), last.size());
    if (digits == 0 || last.substr(digits, 1) != "/") return std::nullopt;
    last.remove_prefix(digits + 1);
    if (last == "task") return std::nullopt;
  }
  if (std::ranges::find(READABLE, last) == std::end(READABLE)) return std::nullopt;

  if (name == "self" || name == "thread-self") return ProcessFile{ProcessOf(thread), file};
  pid_t process = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
  if (error != std::errc() || end != name.data() + name.size() || process <= 0) return std::nullopt;
  // A process that is just being started still has the simulator's own environment.
  if (last == "environ" && process != ProcessOf(thread)) return std::nullopt;
  return ProcessFile{process, file};
}

posix::FileDescriptor HoldProcess(const RootDirectory& root, pid_t process) {
  posix::FileDescriptor held(
      open(fmt::format("/proc/{}", process).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  char target[PATH_MAX];
  const ssize_t size = held.IsOpen() ? readlinkat(held.Get(), "root", target, sizeof target) : -1;
  if (size < 0 || std::string_view(target, static_cast<size_t>(size)) != root.Path()) held.Reset();
  return held;
}

}  // namespace simulator
