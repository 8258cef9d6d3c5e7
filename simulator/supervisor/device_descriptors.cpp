#include "simulator/supervisor/device_descriptors.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace simulator {
namespace {

[[noreturn]] void ThrowErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// The same memory with a file position and an access mode of its own.
posix::FileDescriptor Reopen(const posix::FileDescriptor& memory, int flags) {
  return posix::FileDescriptor(
      open(fmt::format("/proc/self/fd/{}", memory.Get()).c_str(), flags | O_CLOEXEC));
}

// Hands each message of a pipe or socket to `value` until its other side is closed.
void WatchValues(PollLoop& loop, posix::FileDescriptor reading, std::function<void(std::string)> value) {
  auto descriptor = std::make_shared<posix::FileDescriptor>(std::move(reading));
  auto watch = std::make_shared<PollLoop::Id>();
  *watch = loop.Watch(
      descriptor->Get(), POLLIN,
      [&loop, descriptor, watch, value = std::move(value)](short events) {
        std::string bytes(1 << 16, '\0');
        const ssize_t size = read(descriptor->Get(), bytes.data(), bytes.size());
        if (size > 0) {
          bytes.resize(static_cast<size_t>(size));
          return value(std::move(bytes));
        }
        if (size == 0 || (errno != EAGAIN && errno != EINTR) || (events & POLLIN) == 0) loop.Unwatch(*watch);
      },
      PollLoop::Turn::Value);
}

}  // namespace

posix::FileDescriptor TextSnapshot(std::string_view text) {
  posix::FileDescriptor memory(memfd_create("text", MFD_CLOEXEC));
  if (!memory.IsOpen() ||
      write(memory.Get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    ThrowErrno("memfd");
  }
  return Reopen(memory, O_RDONLY);
}

DeviceMemory::DeviceMemory(size_t size)
    : memory_(memfd_create("device", MFD_CLOEXEC | MFD_ALLOW_SEALING)), size_(size) {
  if (!memory_.IsOpen() || ftruncate(memory_.Get(), static_cast<off_t>(size)) != 0 ||
      fcntl(memory_.Get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
    ThrowErrno("memfd");
  }
  if (size == 0) return;
  void* mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, memory_.Get(), 0);
  if (mapping == MAP_FAILED) ThrowErrno("mmap");
  bytes_ = static_cast<uint8_t*>(mapping);
}

DeviceMemory::~DeviceMemory() {
  if (bytes_ != nullptr) munmap(bytes_, size_);
}

posix::FileDescriptor DeviceMemory::Open(const OpenCall& call) const {
  return Reopen(memory_, call.ModeFlags());
}

posix::FileDescriptor ValuePipe(PollLoop& loop, const OpenCall& call,
                                std::function<void(std::string)> value) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_DIRECT) != 0) ThrowErrno("pipe");
  fcntl(ends[0], F_SETFL, O_NONBLOCK | O_DIRECT);
  fcntl(ends[1], F_SETFL, (call.flags & O_NONBLOCK) | O_DIRECT);
  WatchValues(loop, posix::FileDescriptor(ends[0]), std::move(value));
  return posix::FileDescriptor(ends[1]);
}

posix::FileDescriptor ValueSocket(PollLoop& loop, const OpenCall& call, std::string_view text,
                                  std::function<void(std::string)> value) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) ThrowErrno("socketpair");
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  fcntl(ends[1], F_SETFL, call.flags & O_NONBLOCK);
  if (!text.empty()) send(ends[0], text.data(), text.size(), MSG_NOSIGNAL);
  WatchValues(loop, posix::FileDescriptor(ends[0]), std::move(value));
  return posix::FileDescriptor(ends[1]);
}

}  // namespace simulator
