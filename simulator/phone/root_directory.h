// The phone's file system: an ordinary directory that the phone's programs are confined to. Without a state
// directory it is temporary and goes with the phone; a state directory is kept, so the phone finds its files
// again.
//
// The phone's programs may put anything there, symbolic links too. So every function here that takes a path
// of the phone resolves it inside the directory: it never reaches another file of the PC, and never waits for
// one.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "posix/file_descriptor.h"

namespace simulator {

// The parts of a temporary root directory's path before and after the characters that make it the only one.
std::filesystem::path TemporaryDirectory();
constexpr std::string_view TEMPORARY_NAME = "phonesim-root-";

// A directory as its open descriptor, locked for its phone. Not open if another process has it, or the path
// is no longer this directory's.
posix::FileDescriptor LockDirectory(const std::string& path);

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

  // All paths below are the phone's own, "/usr/share/app".

  // Where the PC has the file, for those who trust what is there.
  std::filesystem::path Outside(std::string_view phone_path) const;
  // Opens a file or directory, with O_PATH too. Not open if that fails, with errno set.
  posix::FileDescriptor Open(std::string_view phone_path, int flags, mode_t mode = 0) const;

  // The functions below throw std::system_error. They make missing directories above a path.
  void MakeDirectory(std::string_view phone_path);
  void PutFile(std::string_view phone_path, std::string_view content, mode_t mode = 0644);
  void PutFileIfAbsent(std::string_view phone_path, std::string_view content, mode_t mode = 0644);
  // All bytes 0 and none on the disk until they are written.
  void PutSparseFileIfAbsent(std::string_view phone_path, uint64_t size);
  void PutLink(std::string_view phone_path, std::string_view target);
  // A second name of the same file.
  void PutHardLink(std::string_view phone_path, std::string_view existing_phone_path);
  void PutNamedPipe(std::string_view phone_path);
  // An empty file at a device's path, so that `ls` and `test -e` see the device.
  void PutStandIn(std::string_view phone_path);
  // A copy of one of the PC's files, executable when that is.
  void CopyIn(const std::filesystem::path& source, std::string_view phone_path);
  // A program with the dynamic loader and the shared libraries that it needs.
  void CopyProgramIn(const std::filesystem::path& source, std::string_view phone_path);
  void SetMode(std::string_view phone_path, mode_t mode);
  void Move(std::string_view phone_path, std::string_view new_phone_path);
  void Remove(std::string_view phone_path);
  bool Exists(std::string_view phone_path) const;
  // The file's first bytes, all of them if it is not larger than `limit`. Throws std::runtime_error if there
  // is no such file.
  std::string ReadFile(std::string_view phone_path, size_t limit = 64 << 20) const;
  std::vector<std::string> ListDirectory(std::string_view phone_path) const;

 private:
  // The directory that a path's last name is in.
  struct Place {
    posix::FileDescriptor directory;
    std::string name;
  };
  Place PlaceOf(std::string_view phone_path) const;
  Place MakePlaceFor(std::string_view phone_path);
  posix::FileDescriptor OpenOrdinary(std::string_view phone_path, int flags, mode_t mode = 0) const;
  void MakeTemporary();

  std::string path_;
  bool temporary_ = true;
  bool removes_ = true;
  posix::FileDescriptor lock_;
  posix::FileDescriptor descriptor_;
};

}  // namespace simulator
