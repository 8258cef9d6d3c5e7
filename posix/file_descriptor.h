// An open file descriptor with one owner, closed at the owner's end.
#pragma once

#include <unistd.h>

#include <utility>

namespace posix {

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

}  // namespace posix
