#include "simulator/phone/device_descriptors.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace simulator {

namespace {

constexpr size_t MOST_UNSENT = 1 << 20;  // what comes beyond it is lost, as on a line that nothing reads

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
    posix::ThrowErrno("memfd");
  }
  return Reopen(memory, O_RDONLY);
}

DeviceMemory::DeviceMemory(size_t size)
    : memory_(memfd_create("device", MFD_CLOEXEC | MFD_ALLOW_SEALING)), size_(size) {
  if (!memory_.IsOpen() || ftruncate(memory_.Get(), static_cast<off_t>(size)) != 0 ||
      fcntl(memory_.Get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
    posix::ThrowErrno("memfd");
  }
  if (size == 0) return;
  void* mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, memory_.Get(), 0);
  if (mapping == MAP_FAILED) posix::ThrowErrno("mmap");
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
  if (pipe2(ends, O_CLOEXEC | O_DIRECT) != 0) posix::ThrowErrno("pipe");
  fcntl(ends[0], F_SETFL, O_NONBLOCK | O_DIRECT);
  fcntl(ends[1], F_SETFL, (call.flags & O_NONBLOCK) | O_DIRECT);
  WatchValues(loop, posix::FileDescriptor(ends[0]), std::move(value));
  return posix::FileDescriptor(ends[1]);
}

posix::FileDescriptor ValueSocket(PollLoop& loop, const OpenCall& call, std::string_view text,
                                  std::function<void(std::string)> value) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) posix::ThrowErrno("socketpair");
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  fcntl(ends[1], F_SETFL, call.flags & O_NONBLOCK);
  if (!text.empty()) send(ends[0], text.data(), text.size(), MSG_NOSIGNAL);
  WatchValues(loop, posix::FileDescriptor(ends[0]), std::move(value));
  return posix::FileDescriptor(ends[1]);
}

struct SerialLine::State {
  PollLoop& loop;
  std::function<void(std::string_view)> received;
  std::function<void()> sent;
  posix::FileDescriptor master;
  // Without one open device the master is at its end whenever the phone closes its own.
  posix::FileDescriptor device;
  PollLoop::Id watch = 0;
  bool held_back = false;
  std::string unsent;
  std::shared_ptr<const bool> plugged;

  void Open() {
    master.Reset(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    if (!master.IsOpen() || unlockpt(master.Get()) != 0) posix::ThrowErrno("pseudo-terminal");
    device.Reset(ioctl(master.Get(), TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!device.IsOpen()) posix::ThrowErrno("pseudo-terminal");
    // What comes in while no program has the line open is not sent back.
    termios settings = {};
    tcgetattr(device.Get(), &settings);
    settings.c_lflag &= static_cast<tcflag_t>(~ECHO);
    tcsetattr(device.Get(), TCSANOW, &settings);
    watch = loop.Watch(master.Get(), POLLIN, [this](short events) { Serve(events); });
    plugged = std::make_shared<const bool>();
  }

  void Close() {
    loop.Unwatch(watch);
    device.Reset();
    master.Reset();
    unsent.clear();
    plugged.reset();
  }

  void SetEvents() {
    loop.SetEvents(watch, static_cast<short>((held_back ? 0 : POLLIN) | (unsent.empty() ? 0 : POLLOUT)));
  }

  void Serve(short events) {
    if (events & POLLOUT) WriteUnsent();
    if (!(events & POLLIN)) return;
    char bytes[1 << 14];
    const ssize_t size = read(master.Get(), bytes, sizeof bytes);
    if (size > 0) received({bytes, static_cast<size_t>(size)});
  }

  void WriteUnsent() {
    const bool any = !unsent.empty();
    while (!unsent.empty()) {
      const ssize_t size = write(master.Get(), unsent.data(), unsent.size());
      if (size <= 0) break;
      unsent.erase(0, static_cast<size_t>(size));
    }
    SetEvents();
    if (any && unsent.empty() && sent) sent();
  }
};

SerialLine::SerialLine(PollLoop& loop, std::function<void(std::string_view)> received)
    : state_(new State{loop, std::move(received), {}, {}, {}, 0, false, {}, {}}) {
  state_->Open();
}

SerialLine::~SerialLine() {
  state_->Close();
}

posix::FileDescriptor SerialLine::Open(const OpenCall& call) const {
  return posix::FileDescriptor(
      ioctl(state_->master.Get(), TIOCGPTPEER, call.ModeFlags() | O_NOCTTY | O_CLOEXEC));
}

std::weak_ptr<const void> SerialLine::Plugged() const {
  return state_->plugged;
}

void SerialLine::Send(std::string_view bytes) {
  state_->unsent += bytes.substr(0, std::min(bytes.size(), MOST_UNSENT - state_->unsent.size()));
  state_->WriteUnsent();
}

size_t SerialLine::Unsent() const {
  return state_->unsent.size();
}

void SerialLine::HoldBack(bool held) {
  state_->held_back = held;
  state_->SetEvents();
}

void SerialLine::SetSent(std::function<void()> sent) {
  state_->sent = std::move(sent);
}

std::string SerialLine::DevicePath() const {
  char path[64];
  if (ptsname_r(state_->master.Get(), path, sizeof path) != 0) posix::ThrowErrno("ptsname");
  return path;
}

void SerialLine::HangUp() {
  const bool lost = Unsent() != 0;
  state_->Close();
  state_->Open();
  state_->SetEvents();
  if (lost && state_->sent) state_->sent();
}

int SerialLine::MasterDescriptor() const {
  return state_->master.Get();
}
int SerialLine::DeviceDescriptor() const {
  return state_->device.Get();
}

SerialRelay::SerialRelay(PollLoop& loop, Passed passed) : passed_(std::move(passed)) {
  first_ = std::make_unique<SerialLine>(loop, [this](std::string_view bytes) { Pass(true, bytes); });
  second_ = std::make_unique<SerialLine>(loop, [this](std::string_view bytes) { Pass(false, bytes); });
  first_->SetSent([this] { second_->HoldBack(false); });
  second_->SetSent([this] { first_->HoldBack(false); });
}

void SerialRelay::Pass(bool forward, std::string_view bytes) {
  if (passed_) passed_(forward, bytes);
  SerialLine& source = forward ? *first_ : *second_;
  SerialLine& target = forward ? *second_ : *first_;
  target.Send(bytes);
  // What the target does not take now stays with it, and no more is taken from the source.
  if (target.Unsent() != 0) source.HoldBack(true);
}

}  // namespace simulator
