#include "simulator/phone/root_directory.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/fs.h>
#include <linux/openat2.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "simulator/phone/removal.h"
#include "simulator/phone/shared_libraries.h"

namespace simulator {

namespace {

namespace fs = std::filesystem;

void WriteAll(int file, std::string_view content, std::string_view path) {
  while (!content.empty()) {
    const ssize_t written = write(file, content.data(), content.size());
    if (written < 0) posix::ThrowErrno(std::string(path));
    content.remove_prefix(static_cast<size_t>(written));
  }
}

// Shares the blocks if the file system can do that, otherwise copies inside the kernel.
void CopyContent(int from, int to, std::string_view path) {
  if (ioctl(to, FICLONE, from) == 0) return;
  while (true) {
    const ssize_t copied = copy_file_range(from, nullptr, to, nullptr, 1 << 30, 0);
    if (copied == 0) return;
    if (copied > 0) continue;
    if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP)
      posix::ThrowErrno(std::string(path));
    char bytes[1 << 16];
    ssize_t size;
    while ((size = read(from, bytes, sizeof bytes)) > 0)
      WriteAll(to, {bytes, static_cast<size_t>(size)}, path);
    return;
  }
}

fs::path ParentOf(std::string_view phone_path) {
  return fs::path("/") / fs::path(phone_path).parent_path();
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

posix::FileDescriptor RootDirectory::Open(std::string_view phone_path, int flags, mode_t mode) const {
  open_how how = {};
  // A named pipe without a writer would keep the simulator waiting.
  how.flags = static_cast<uint64_t>(flags | O_CLOEXEC | ((flags & O_PATH) != 0 ? 0 : O_NONBLOCK | O_NOCTTY));
  how.mode = (flags & O_CREAT) != 0 ? mode : 0;
  how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
  const std::string path(phone_path);
  // EAGAIN: a directory was moved at this moment, so the kernel cannot be sure about "..".
  for (int attempt = 0;; ++attempt) {
    const long file = syscall(SYS_openat2, descriptor_.Get(), path.c_str(), &how, sizeof how);
    if (file >= 0 || errno != EAGAIN || attempt == 100) return posix::FileDescriptor(static_cast<int>(file));
  }
}

RootDirectory::Place RootDirectory::PlaceOf(std::string_view phone_path) const {
  return {Open(ParentOf(phone_path).native(), O_PATH | O_DIRECTORY), fs::path(phone_path).filename()};
}

RootDirectory::Place RootDirectory::MakePlaceFor(std::string_view phone_path) {
  Place place = PlaceOf(phone_path);
  if (place.directory.IsOpen()) return place;
  MakeDirectory(ParentOf(phone_path).native());
  return PlaceOf(phone_path);
}

posix::FileDescriptor RootDirectory::OpenOrdinary(std::string_view phone_path, int flags, mode_t mode) const {
  posix::FileDescriptor file = Open(phone_path, flags, mode);
  struct stat status;
  if (file.IsOpen() && (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode))) {
    file.Reset();
    errno = EINVAL;
  }
  return file;
}

void RootDirectory::MakeDirectory(std::string_view phone_path) {
  fs::path path = "/";
  for (const fs::path& name : fs::path(phone_path).relative_path()) {
    if (name.empty()) continue;
    path /= name;
    if (Open(path.native(), O_PATH | O_DIRECTORY).IsOpen()) continue;
    const Place place = PlaceOf(path.native());
    RemoveTree(place.directory.Get(), place.name.c_str());  // what is there is no directory
    if (mkdirat(place.directory.Get(), place.name.c_str(), 0755) != 0) posix::ThrowErrno(path);
  }
}

void RootDirectory::PutFile(std::string_view phone_path, std::string_view content, mode_t mode) {
  constexpr int FLAGS = O_WRONLY | O_CREAT;
  posix::FileDescriptor file = OpenOrdinary(phone_path, FLAGS, mode);
  if (!file.IsOpen() && errno == ENOENT) {
    MakeDirectory(ParentOf(phone_path).native());
    file = OpenOrdinary(phone_path, FLAGS, mode);
  }
  if (!file.IsOpen() && errno != EACCES) {  // not a file, a link to nothing, or a program that runs
    Remove(phone_path);
    file = OpenOrdinary(phone_path, FLAGS | O_EXCL, mode);
  }
  if (!file.IsOpen() || ftruncate(file.Get(), 0) != 0) posix::ThrowErrno(std::string(phone_path));
  WriteAll(file.Get(), content, phone_path);
  if (fchmod(file.Get(), mode) != 0) posix::ThrowErrno(std::string(phone_path));
}

void RootDirectory::PutFileIfAbsent(std::string_view phone_path, std::string_view content, mode_t mode) {
  if (!Exists(phone_path)) PutFile(phone_path, content, mode);
}

void RootDirectory::PutSparseFileIfAbsent(std::string_view phone_path, uint64_t size) {
  if (Exists(phone_path)) return;
  PutFile(phone_path, "");
  const posix::FileDescriptor file = OpenOrdinary(phone_path, O_WRONLY);
  if (ftruncate(file.Get(), static_cast<off_t>(size)) != 0) posix::ThrowErrno(std::string(phone_path));
}

void RootDirectory::PutLink(std::string_view phone_path, std::string_view target) {
  Remove(phone_path);
  const Place place = MakePlaceFor(phone_path);
  if (symlinkat(std::string(target).c_str(), place.directory.Get(), place.name.c_str()) != 0) {
    posix::ThrowErrno(std::string(phone_path));
  }
}

void RootDirectory::PutHardLink(std::string_view phone_path, std::string_view existing_phone_path) {
  Remove(phone_path);
  const Place place = MakePlaceFor(phone_path);
  const Place existing = PlaceOf(existing_phone_path);
  if (linkat(existing.directory.Get(), existing.name.c_str(), place.directory.Get(), place.name.c_str(), 0) !=
      0) {
    posix::ThrowErrno(std::string(phone_path));
  }
}

void RootDirectory::PutNamedPipe(std::string_view phone_path) {
  Remove(phone_path);
  const Place place = MakePlaceFor(phone_path);
  if (mkfifoat(place.directory.Get(), place.name.c_str(), 0600) != 0) {
    posix::ThrowErrno(std::string(phone_path));
  }
}

void RootDirectory::PutStandIn(std::string_view phone_path) {
  PutFileIfAbsent(phone_path, "", 0666);
}

void RootDirectory::CopyIn(const fs::path& source, std::string_view phone_path) {
  const posix::FileDescriptor from(open(source.c_str(), O_RDONLY | O_CLOEXEC));
  if (!from.IsOpen()) posix::ThrowErrno(source);
  const mode_t mode = access(source.c_str(), X_OK) == 0 ? 0755 : 0644;
  // A program that runs cannot be overwritten, only replaced.
  Remove(phone_path);
  PutFile(phone_path, "", mode);
  const posix::FileDescriptor to = OpenOrdinary(phone_path, O_WRONLY);
  if (!to.IsOpen()) posix::ThrowErrno(std::string(phone_path));
  CopyContent(from.Get(), to.Get(), phone_path);
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

void RootDirectory::SetMode(std::string_view phone_path, mode_t mode) {
  const posix::FileDescriptor file = Open(phone_path, O_RDONLY);
  if (!file.IsOpen() || fchmod(file.Get(), mode) != 0) posix::ThrowErrno(std::string(phone_path));
}

void RootDirectory::Move(std::string_view phone_path, std::string_view new_phone_path) {
  const Place from = PlaceOf(phone_path);
  const Place to = MakePlaceFor(new_phone_path);
  if (renameat(from.directory.Get(), from.name.c_str(), to.directory.Get(), to.name.c_str()) != 0) {
    posix::ThrowErrno(std::string(phone_path));
  }
}

void RootDirectory::Remove(std::string_view phone_path) {
  const Place place = PlaceOf(phone_path);
  if (place.directory.IsOpen()) RemoveTree(place.directory.Get(), place.name.c_str());
}

bool RootDirectory::Exists(std::string_view phone_path) const {
  return Open(phone_path, O_PATH | O_NOFOLLOW).IsOpen();
}

std::string RootDirectory::ReadFile(std::string_view phone_path, size_t limit) const {
  const posix::FileDescriptor file = OpenOrdinary(phone_path, O_RDONLY);
  if (!file.IsOpen()) throw std::runtime_error(fmt::format("the phone has no file {}", phone_path));
  std::string content;
  char bytes[1 << 16];
  ssize_t size;
  while (content.size() < limit &&
         (size = read(file.Get(), bytes, std::min(sizeof bytes, limit - content.size()))) > 0) {
    content.append(bytes, static_cast<size_t>(size));
  }
  return content;
}

std::vector<std::string> RootDirectory::ListDirectory(std::string_view phone_path) const {
  const posix::FileDescriptor directory = Open(phone_path, O_RDONLY | O_DIRECTORY);
  if (!directory.IsOpen()) posix::ThrowErrno(std::string(phone_path));
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(fmt::format("/proc/self/fd/{}", directory.Get()))) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace simulator
