// The phone's file system: an ordinary directory that the server is confined to. Without a state directory it
// is temporary and goes with the phone; a state directory is kept, so the phone finds its files again.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "posix/file_descriptor.h"

namespace simulator {

// Removes a directory with everything in it, whatever the rights on its entries. Allocates nothing, so a
// forked process of a program with threads may call it.
void RemoveTree(const char* path);

// The parts of a temporary root directory's path before and after the characters that make it the only one.
std::filesystem::path TemporaryDirectory();
constexpr std::string_view TEMPORARY_NAME = "phonesim-root-";

// A directory as its open descriptor, locked for its phone. Not open if another process has it, or the path
// is no longer this directory's.
posix::FileDescriptor LockDirectory(const std::string& path);

// Removes a symbolic link that still leads to `target`. Anything else at the path stays.
void RemoveLink(const char* path, const char* target);

class RootDirectory {
 public:
  // An empty path: a new temporary directory.
  explicit RootDirectory(const std::filesystem::path& state_directory);
  ~RootDirectory();
  RootDirectory(const RootDirectory&) = delete;
  RootDirectory& operator=(const RootDirectory&) = delete;

  const std::string& Path() const {
    return path_;
  }
  bool IsTemporary() const {
    return temporary_;
  }
  // The lock that says that the phone lives. It holds as long as one process has this descriptor.
  int Lock() const {
    return lock_.Get();
  }
  int Descriptor() const {
    return descriptor_.Get();
  }
  // From here on the guardian removes a temporary directory.
  void LeaveRemovalToGuardian() {
    removes_ = false;
  }

  // All paths below are the phone's own, "/usr/share/app". Missing directories above a path are made.
  std::filesystem::path Outside(std::string_view phone_path) const;
  void MakeDirectory(std::string_view phone_path);
  void PutFile(std::string_view phone_path, std::string_view content, mode_t mode = 0644);
  void PutFileIfAbsent(std::string_view phone_path, std::string_view content, mode_t mode = 0644);
  // All bytes 0 and none on the disk until they are written.
  void PutSparseFileIfAbsent(std::string_view phone_path, uint64_t size);
  void PutLink(std::string_view phone_path, std::string_view target);
  // A second name of the same file.
  void PutHardLink(std::string_view phone_path, std::string_view existing_phone_path);
  // An empty file at a device's path, so that `ls` and `test -e` see the device.
  void PutStandIn(std::string_view phone_path);
  // A copy of one of the PC's files, executable when that is.
  void CopyIn(const std::filesystem::path& source, std::string_view phone_path);
  // A program with the dynamic loader and the shared libraries that it needs.
  void CopyProgramIn(const std::filesystem::path& source, std::string_view phone_path);
  void Remove(std::string_view phone_path);
  bool Exists(std::string_view phone_path) const;
  std::string ReadFile(std::string_view phone_path) const;
  std::vector<std::string> ListDirectory(std::string_view phone_path) const;

 private:
  void MakeTemporary();

  std::string path_;
  bool temporary_ = true;
  bool removes_ = true;
  posix::FileDescriptor lock_;
  posix::FileDescriptor descriptor_;
};

}  // namespace simulator
