// The kinds of descriptors that models return for an open. Each honours the caller's access mode and
// O_NONBLOCK; close-on-exec is set where the descriptor is handed over.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "posix/file_descriptor.h"
#include "simulator/phone/device_model.h"
#include "simulator/phone/poll_loop.h"

namespace simulator {

// A text as it is now, to be read once through, as a /proc file is read.
posix::FileDescriptor TextSnapshot(std::string_view text);

// Memory of a fixed size as a descriptor, which the phone's programs can map, read and write: a
// framebuffer, a device that only takes requests (size 0). Every open has its own file position and mode.
class DeviceMemory {
 public:
  explicit DeviceMemory(size_t size);
  ~DeviceMemory();
  DeviceMemory(const DeviceMemory&) = delete;
  DeviceMemory& operator=(const DeviceMemory&) = delete;

  posix::FileDescriptor Open(const OpenCall& call) const;
  uint8_t* Bytes() {
    return bytes_;
  }
  const uint8_t* Bytes() const {
    return bytes_;
  }
  size_t Size() const {
    return size_;
  }

 private:
  posix::FileDescriptor memory_;
  uint8_t* bytes_ = nullptr;
  size_t size_;
};

// For one writing open: a pipe of which each write comes out as one piece. `value` is called on the loop with
// each; the pipe goes when its last writer has closed it.
posix::FileDescriptor ValuePipe(PollLoop& loop, const OpenCall& call, std::function<void(std::string)> value);
// The same for an open that both reads and writes: what is read is `text`.
posix::FileDescriptor ValueSocket(PollLoop& loop, const OpenCall& call, std::string_view text,
                                  std::function<void(std::string)> value);

// The phone's end of a serial line: a terminal device with line settings of its own. What the phone writes
// comes to `received`; Send puts bytes into the phone's input, in order, as it takes them.
class SerialLine {
 public:
  SerialLine(PollLoop& loop, std::function<void(std::string_view bytes)> received);
  ~SerialLine();
  SerialLine(const SerialLine&) = delete;
  SerialLine& operator=(const SerialLine&) = delete;

  posix::FileDescriptor Open(const OpenCall& call) const;
  // Lives until the line hangs up: descriptors of before are of no line then.
  std::weak_ptr<const void> Plugged() const;
  void Send(std::string_view bytes);
  size_t Unsent() const;  // bytes that the phone has not taken yet
  // Stops and resumes reading what the phone writes: while stopped, the phone finds the line full.
  void HoldBack(bool held);
  // Called whenever everything in Unsent has been sent.
  void SetSent(std::function<void()> sent);
  // The path of the terminal device by which a program of the PC can open it.
  std::string DevicePath() const;
  // The cable is pulled out: every descriptor that the phone holds is hung up. The line is new afterwards.
  void HangUp();
  // The terminal's settings, for tests: the kernel's struct termios bytes of a descriptor of the phone.
  int MasterDescriptor() const;
  int DeviceDescriptor() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Connects two serial lines byte for byte, each at the other's pace.
class SerialRelay {
 public:
  // `passed`, if set, is called with each piece: from the first line to the second (true) or back (false).
  using Passed = std::function<void(bool forward, std::string_view bytes)>;
  explicit SerialRelay(PollLoop& loop, Passed passed = {});
  SerialLine& First() {
    return *first_;
  }
  SerialLine& Second() {
    return *second_;
  }

 private:
  void Pass(bool forward, std::string_view bytes);

  Passed passed_;
  std::unique_ptr<SerialLine> first_;
  std::unique_ptr<SerialLine> second_;
};

}  // namespace simulator
