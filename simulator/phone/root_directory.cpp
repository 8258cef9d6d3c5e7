#include "simulator/phone/root_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "simulator/phone/shared_libraries.h"

namespace simulator {

namespace {

namespace fs = std::filesystem;

void WriteAll(int file, std::string_view content, const std::string& path) {
  while (!content.empty()) {
    const ssize_t written = write(file, content.data(), content.size());
    if (written < 0) posix::ThrowErrno(path);
    content.remove_prefix(static_cast<size_t>(written));
  }
}

// Shares the blocks if the file system can do that, otherwise copies inside the kernel.
void CopyContent(int from, int to, const std::string& path) {
  if (ioctl(to, FICLONE, from) == 0) return;
  while (true) {
    const ssize_t copied = copy_file_range(from, nullptr, to, nullptr, 1 << 30, 0);
    if (copied == 0) return;
    if (copied > 0) continue;
    if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) posix::ThrowErrno(path);
    char bytes[1 << 16];
    ssize_t size;
    while ((size = read(from, bytes, sizeof bytes)) > 0)
      WriteAll(to, {bytes, static_cast<size_t>(size)}, path);
    return;
  }
}

}  // namespace

fs::path TemporaryDirectory() {
  return fs::canonical(fs::temp_directory_path());
}

posix::FileDescriptor LockDirectory(const std::string& path) {
  posix::FileDescriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat opened, named;
  if (!directory.IsOpen() || flock(directory.Get(), LOCK_EX | LOCK_NB) != 0 ||
      fstat(directory.Get(), &opened) != 0 || lstat(path.c_str(), &named) != 0 ||
      opened.st_dev != named.st_dev || opened.st_ino != named.st_ino) {
    directory.Reset();
  }
  return directory;
}

RootDirectory::RootDirectory(const fs::path& state_directory) {
  if (state_directory.empty()) {
    MakeTemporary();
  } else {
    fs::create_directories(state_directory);
    path_ = fs::canonical(state_directory);
    temporary_ = false;
    removes_ = false;
    lock_ = LockDirectory(path_);
    if (!lock_.IsOpen()) {
      throw std::runtime_error(fmt::format("Another simulated phone uses the state directory {}.", path_));
    }
  }
  descriptor_.Reset(open(path_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor_.IsOpen()) posix::ThrowErrno(path_);
}

void RootDirectory::MakeTemporary() {
  // Until it is locked, another start may take the directory for a dead phone's.
  for (int attempt = 0; !lock_.IsOpen(); ++attempt) {
    constexpr int MOST_ATTEMPTS = 20;
    if (attempt == MOST_ATTEMPTS) throw std::runtime_error(fmt::format("{} cannot be locked.", path_));
    path_ = TemporaryDirectory() / fmt::format("{}XXXXXX", TEMPORARY_NAME);
    if (mkdtemp(path_.data()) == nullptr) posix::ThrowErrno(path_);
    lock_ = LockDirectory(path_);
  }
  if (fchmod(lock_.Get(), 0755) != 0) posix::ThrowErrno(path_);
}

RootDirectory::~RootDirectory() {
  if (removes_) RemoveTree(path_.c_str());
}

fs::path RootDirectory::Outside(std::string_view phone_path) const {
  return fs::path(path_ + "/" + std::string(phone_path));
}

void RootDirectory::MakeDirectory(std::string_view phone_path) {
  fs::create_directories(Outside(phone_path));
}

void RootDirectory::PutFile(std::string_view phone_path, std::string_view content, mode_t mode) {
  const fs::path path = Outside(phone_path);
  const auto create = [&] { return open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode); };
  posix::FileDescriptor file(create());
  if (!file.IsOpen() && errno == ENOENT) {
    fs::create_directories(path.parent_path());
    file.Reset(create());
  }
  if (!file.IsOpen()) posix::ThrowErrno(path);
  WriteAll(file.Get(), content, path);
  if (fchmod(file.Get(), mode) != 0) posix::ThrowErrno(path);
}

void RootDirectory::PutFileIfAbsent(std::string_view phone_path, std::string_view content, mode_t mode) {
  if (!Exists(phone_path)) PutFile(phone_path, content, mode);
}

void RootDirectory::PutSparseFileIfAbsent(std::string_view phone_path, uint64_t size) {
  if (Exists(phone_path)) return;
  PutFile(phone_path, "");
  fs::resize_file(Outside(phone_path), size);
}

void RootDirectory::PutLink(std::string_view phone_path, std::string_view target) {
  const fs::path path = Outside(phone_path);
  const std::string target_text(target);
  for (int attempt = 0; attempt < 3; ++attempt) {
    if (symlink(target_text.c_str(), path.c_str()) == 0) return;
    if (errno == ENOENT) fs::create_directories(path.parent_path());
    if (errno == EEXIST) Remove(phone_path);
  }
  posix::ThrowErrno(path);
}

void RootDirectory::PutHardLink(std::string_view phone_path, std::string_view existing_phone_path) {
  Remove(phone_path);
  MakeDirectory(fs::path(phone_path).parent_path().string());
  fs::create_hard_link(Outside(existing_phone_path), Outside(phone_path));
}

void RootDirectory::PutStandIn(std::string_view phone_path) {
  PutFileIfAbsent(phone_path, "", 0666);
}

void RootDirectory::CopyIn(const fs::path& source, std::string_view phone_path) {
  const posix::FileDescriptor from(open(source.c_str(), O_RDONLY | O_CLOEXEC));
  if (!from.IsOpen()) posix::ThrowErrno(source);
  const mode_t mode = access(source.c_str(), X_OK) == 0 ? 0755 : 0644;
  // A file in use as a program cannot be overwritten, only replaced.
  Remove(phone_path);
  PutFile(phone_path, "", mode);
  const fs::path path = Outside(phone_path);
  const posix::FileDescriptor to(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (!to.IsOpen()) posix::ThrowErrno(path);
  CopyContent(from.Get(), to.Get(), path);
}

void RootDirectory::CopyProgramIn(const fs::path& source, std::string_view phone_path) {
  CopyIn(source, phone_path);
  for (const NeededFile& file : NeededFiles(source)) {
    if (Exists(file.phone_path.string())) continue;
    CopyIn(file.source, file.phone_path.string());
    // The phone has no cache of library names. Without one the loader asks for a library in some two dozen
    // directories for variants of the processor before its own. One of the first it asks for is this.
    const fs::path variant = file.phone_path.parent_path() / "glibc-hwcaps/x86-64-v2";
    PutHardLink((variant / file.phone_path.filename()).string(), file.phone_path.string());
  }
}

void RootDirectory::Remove(std::string_view phone_path) {
  RemoveTree(Outside(phone_path).c_str());
}

bool RootDirectory::Exists(std::string_view phone_path) const {
  return fs::symlink_status(Outside(phone_path)).type() != fs::file_type::not_found;
}

std::string RootDirectory::ReadFile(std::string_view phone_path) const {
  std::ifstream file(Outside(phone_path), std::ios::binary);
  if (!file) throw std::runtime_error(fmt::format("the phone has no file {}", phone_path));
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> RootDirectory::ListDirectory(std::string_view phone_path) const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(Outside(phone_path)))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

namespace {

void RemoveEntries(int directory);

void RemoveEntry(int parent, const char* name) {
  if (unlinkat(parent, name, 0) == 0) return;
  if (errno == EISDIR || errno == EPERM) {
    fchmodat(parent, name, 0700, 0);
    const int directory = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (directory >= 0) {
      RemoveEntries(directory);
      close(directory);
    }
    unlinkat(parent, name, AT_REMOVEDIR);
  }
}

void RemoveEntries(int directory) {
  // A directory that changes under the listing is listed again until it is empty or nothing more goes.
  alignas(dirent64) char entries[4096];
  while (true) {
    lseek(directory, 0, SEEK_SET);
    const long size = syscall(SYS_getdents64, directory, entries, sizeof entries);
    bool found = false;
    bool removed = false;
    for (long offset = 0; offset < size;) {
      const auto* entry = reinterpret_cast<const dirent64*>(entries + offset);
      offset += entry->d_reclen;
      if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
      found = true;
      RemoveEntry(directory, entry->d_name);
      struct stat status;
      if (fstatat(directory, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) removed = true;
    }
    if (!found || !removed) return;
  }
}

}  // namespace

void RemoveLink(const char* path, const char* target) {
  char found[PATH_MAX];
  const ssize_t size = readlink(path, found, sizeof found);
  if (size > 0 && std::string_view(found, static_cast<size_t>(size)) == target) unlink(path);
}

void RemoveTree(const char* path) {
  RemoveEntry(AT_FDCWD, path);
}

}  // namespace simulator
