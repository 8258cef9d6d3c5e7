#include "simulator/supervisor/phone_paths.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
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
  if (outside.starts_with("/proc/")) {
    // A directory of the real /proc that the program got by way of RealProcessFile: what lies around it is
    // the PC's.
    const std::string file = outside + "/" + path;
    return RealProcessFile(thread, file) ? std::optional(file) : std::nullopt;
  }
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

std::optional<std::string> RealProcessFile(pid_t thread, const std::string& absolute_path) {
  static constexpr std::string_view READABLE[] = {"maps",    "smaps",   "status", "stat", "comm",
                                                  "environ", "cmdline", "exe",    "auxv", "task"};
  std::string path = std::filesystem::path(absolute_path).lexically_normal();
  if (!path.starts_with("/proc/")) return std::nullopt;
  if (path.ends_with('/')) path.pop_back();
  const size_t name_end = std::min(path.find('/', 6), path.size());
  const std::string process = path.substr(6, name_end - 6);
  if (name_end == path.size()) return std::nullopt;
  const std::string file = path.substr(name_end + 1);
  const std::string first = file.substr(0, file.find('/'));
  const bool below_task = first == "task" && file.find("/fd") == std::string::npos &&
                          file.find("/root") == std::string::npos && file.find("/cwd") == std::string::npos &&
                          file.find("/mem") == std::string::npos;
  bool readable = below_task;
  for (std::string_view name : READABLE) readable = readable || file == name;
  if (!readable) return std::nullopt;

  const bool own = process == "self" || process == "thread-self";
  if (!own && process.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
  return fmt::format("/proc/{}/{}", own ? std::to_string(ProcessOf(thread)) : process, file);
}

}  // namespace simulator
