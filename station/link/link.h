// The byte link to a phone: a serial port, raw and non-blocking, or a connection to a serial server, raw or
// by RFC 2217; and the trace of what goes over it. Nothing here waits without a deadline.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "posix/file_descriptor.h"
#include "station/link/serial_server.h"

namespace station {

using Clock = std::chrono::steady_clock;

// A trace file: every byte on the link, with direction and time, as text. A line is the time in seconds, a
// direction ('>' to the phone, '<' from it, '#' a remark) and the bytes in hexadecimal or the remark.
class Trace {
 public:
  // Truncates the file. Throws OutputLost if it cannot be written. What is lost later is told, and the work
  // goes on.
  Trace(const std::string& path, const std::string& port);

  void Sent(std::span<const std::uint8_t> bytes);
  void Received(std::span<const std::uint8_t> bytes);
  void Remark(const std::string& text);

 private:
  void Line(char direction, const std::string& text);
  void Write(const std::string& text);

  std::string path_;
  posix::FileDescriptor file_;
  Clock::time_point start_ = Clock::now();
};

class Link {
 public:
  // Opens "/dev/...", "tcp:HOST:PORT" or "rfc2217:HOST:PORT". The trace, if any, must outlive the link.
  // Throws LinkFailure.
  explicit Link(const std::string& port, Trace* trace = nullptr);

  const std::string& Port() const {
    return port_;
  }

  // For relays that wait for several descriptors at once. While a serial server lets nothing be sent, POLLIN
  // stands for POLLOUT.
  pollfd Polled(short events) const;

  // Sends all bytes, in one write if the port takes them. Throws LinkFailure if it does not take them in
  // time.
  void Send(std::span<const std::uint8_t> bytes, Clock::time_point deadline);

  // Sends as many bytes as the port takes at once; returns their number.
  std::size_t SendSome(std::span<const std::uint8_t> bytes);

  // Receives until the room is full or the deadline has passed; returns the number of bytes received. Throws
  // LinkFailure if the port has hung up.
  std::size_t Receive(std::span<std::uint8_t> room, Clock::time_point deadline);

  // Receives what has already come, as far as there is room, without waiting.
  std::size_t ReceiveWaiting(std::span<std::uint8_t> room);

  // Throws away what came before a command: it cannot be that command's answer. Throws LinkFailure if the
  // phone does not stop sending before the deadline.
  void DiscardInput(Clock::time_point deadline);

  void Remark(const std::string& text);

 private:
  bool IsSuspended() const {
    return server_ && server_->IsSuspended();
  }
  bool WaitFor(short events, Clock::time_point deadline);
  std::size_t ReadPort(std::span<std::uint8_t> room);
  void KeepEarly();

  std::string port_;
  Trace* trace_;
  posix::FileDescriptor descriptor_;  // not open if there is a server
  std::optional<SerialServer> server_;
  Bytes early_;  // came while the server let nothing be sent
};

}  // namespace station
