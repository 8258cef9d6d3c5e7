#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "simulator/supervisor/device_descriptors.h"

namespace simulator {
namespace {

[[noreturn]] void ThrowErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

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

  void Open() {
    master.Reset(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    if (!master.IsOpen() || unlockpt(master.Get()) != 0) ThrowErrno("pseudo-terminal");
    device.Reset(ioctl(master.Get(), TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!device.IsOpen()) ThrowErrno("pseudo-terminal");
    // What comes in while no program has the line open is not sent back.
    termios settings = {};
    tcgetattr(device.Get(), &settings);
    settings.c_lflag &= static_cast<tcflag_t>(~ECHO);
    tcsetattr(device.Get(), TCSANOW, &settings);
    watch = loop.Watch(master.Get(), POLLIN, [this](short events) { Serve(events); });
  }

  void Close() {
    loop.Unwatch(watch);
    device.Reset();
    master.Reset();
    unsent.clear();
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
    : state_(new State{loop, std::move(received), {}, {}, {}, 0, false, {}}) {
  state_->Open();
}

SerialLine::~SerialLine() {
  state_->Close();
}

posix::FileDescriptor SerialLine::Open(const OpenCall& call) const {
  return posix::FileDescriptor(
      ioctl(state_->master.Get(), TIOCGPTPEER, call.ModeFlags() | O_NOCTTY | O_CLOEXEC));
}

void SerialLine::Send(std::string_view bytes) {
  state_->unsent += bytes;
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
  if (ptsname_r(state_->master.Get(), path, sizeof path) != 0) ThrowErrno("ptsname");
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
