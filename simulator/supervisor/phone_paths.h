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

// A file of the real /proc about a process.
struct ProcessFile {
  pid_t process;
  std::string file;  // below the process's own directory
};

// The /proc file that a path means, if it is one that a program of the phone may read about the phone's
// processes: the sanitizers and the shell's tools need them. None for all others.
std::optional<ProcessFile> FindProcessFile(pid_t thread, const std::string& absolute_path);

// The real /proc directory of a process of the phone, which stands for this process alone: its number may be
// another's later. Not open if it is not the phone's. No program of the phone may get this descriptor.
posix::FileDescriptor HoldProcess(const RootDirectory& root, pid_t process);

}  // namespace simulator
