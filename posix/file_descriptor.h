// An open file descriptor with one owner, closed at the owner's end; pairs of connected ones.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace posix {

// Throws what errno says about `what`.
[[noreturn]] inline void ThrowErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int number) : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(other.Release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  ~FileDescriptor() {
    Reset();
  }

  int Get() const {
    return number_;
  }
  bool IsOpen() const {
    return number_ >= 0;
  }
  int Release() {
    return std::exchange(number_, -1);
  }
  void Reset(int number = -1) {
    if (number_ >= 0) close(number_);
    number_ = number;
  }

 private:
  int number_ = -1;
};

// What is written to `writing` comes out of `reading`; a socket pair passes bytes both ways. Not open, with
// errno set, if the system has none left.
struct Connection {
  FileDescriptor reading, writing;

  explicit operator bool() const {
    return reading.IsOpen();
  }
};

// Close-on-exec always; `flags` as pipe2 takes them.
inline Connection MakePipe(int flags = 0) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | flags) != 0) return {};
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

inline Connection MakeSocketPair(int type) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_CLOEXEC | type, 0, ends) != 0) return {};
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

}  // namespace posix
