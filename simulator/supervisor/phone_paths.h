// What a path that one of the phone's processes names is, seen from the phone's root directory.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "simulator/phone/root_directory.h"

namespace simulator {

// The path from the root, by the caller's directory; none when that is not the phone's. Links are not
// followed.
std::optional<std::string> AbsolutePath(const RootDirectory& root, pid_t thread, int directory,
                                        const std::string& path);

struct ResolvedPath {
  std::string path;  // with all links followed
  bool exists;
};

ResolvedPath ResolvePath(const RootDirectory& root, const std::string& absolute_path,
                         bool follow_last = true);

// The phone's path of a file that the PC knows by `outside`; none when it is not the phone's.
std::optional<std::string> PhonePath(const RootDirectory& root, const std::string& outside);

// The PC's own path of a /proc file about the phone's processes that a program of the phone may read: the
// sanitizers and the shell's tools need them. None for all others.
std::optional<std::string> RealProcessFile(pid_t thread, const std::string& absolute_path);

}  // namespace simulator
