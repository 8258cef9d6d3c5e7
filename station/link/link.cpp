#include "station/link/link.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "posix/whole_output.h"
#include "station/commands/bytes.h"
#include "station/commands/errors.h"
#include "station/link/interruption.h"
#include "station/link/port_opening.h"

namespace station {

namespace {

posix::FileDescriptor OpenPort(const std::string& port) {
  if (port.starts_with(TCP_PREFIX)) return OpenTcpPort(port.substr(std::strlen(TCP_PREFIX)));
  return OpenSerialPort(port);
}

bool MayTryAgain() {
  return errno == EAGAIN || errno == EINTR;
}

}  // namespace

Trace::Trace(const std::string& path, const std::string& port)
    : path_(path), file_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
  if (!file_.IsOpen()) {
    const std::string lost = fmt::format("cannot write the trace {}: {}", path, std::strerror(errno));
    posix::TellLostOutput(lost);
    throw OutputLost(lost);
  }
  Write(fmt::format("# phonetest trace 1\n# {} {:%Y-%m-%d %H:%M:%S}\n", port,
                    fmt::localtime(std::time(nullptr))));
}

void Trace::Sent(std::span<const std::uint8_t> bytes) {
  if (!bytes.empty()) Line('>', HexText(bytes));
}

void Trace::Received(std::span<const std::uint8_t> bytes) {
  if (!bytes.empty()) Line('<', HexText(bytes));
}

void Trace::Remark(const std::string& text) {
  Line('#', text);
}

void Trace::Line(char direction, const std::string& text) {
  const std::chrono::duration<double> since = Clock::now() - start_;
  // Written line by line: a trace is needed most if the program did not end as it should.
  Write(fmt::format("{:.6f} {} {}\n", since.count(), direction, text));
}

void Trace::Write(const std::string& text) {
  if (!file_.IsOpen()) return;
  const std::string reason = posix::WriteAll(file_.Get(), text);
  if (reason.empty()) return;
  posix::TellLostOutput(fmt::format("cannot write the trace {}: {}", path_, reason));
  file_.Reset();  // no later piece stands after a gap
}

Link::Link(const std::string& port, Trace* trace) : port_(port), trace_(trace) {
  if (port.starts_with(RFC2217_PREFIX)) {
    server_.emplace(port.substr(std::strlen(RFC2217_PREFIX)));
  } else {
    descriptor_ = OpenPort(port);
  }
}

pollfd Link::Polled(short events) const {
  if (IsSuspended() && (events & POLLOUT) != 0) events = POLLIN;
  return {server_ ? server_->Number() : descriptor_.Get(), events, 0};
}

bool Link::WaitFor(short events, Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  if (left <= 0 || Interrupted()) return false;
  std::array<pollfd, 2> waiting = {{Polled(events), {InterruptionDescriptor(), POLLIN, 0}}};
  poll(waiting.data(), waiting.size(), static_cast<int>(std::min<long>(left, 60'000)));
  return true;
}

std::size_t Link::SendSome(std::span<const std::uint8_t> bytes) {
  const ssize_t written =
      server_ ? server_->Write(bytes) : write(descriptor_.Get(), bytes.data(), bytes.size());
  if (written < 0 && !MayTryAgain()) {
    throw LinkLost(fmt::format("cannot send to {}: {}", port_, std::strerror(errno)));
  }
  const auto sent = static_cast<std::size_t>(std::max<ssize_t>(written, 0));
  if (trace_ != nullptr) trace_->Sent(bytes.first(sent));
  return sent;
}

void Link::Send(std::span<const std::uint8_t> bytes, Clock::time_point deadline) {
  for (;;) {
    bytes = bytes.subspan(SendSome(bytes));
    if (bytes.empty()) return;
    if (WaitFor(POLLOUT, deadline)) {
      if (IsSuspended()) KeepEarly();
      continue;
    }
    CheckInterruption();
    throw LinkFailure(fmt::format("{} does not take what is sent{}", port_,
                                  IsSuspended() ? ": the server has suspended it" : ""));
  }
}

// Data may come before what the server says about sending.
void Link::KeepEarly() {
  constexpr std::size_t MOST_EARLY = 1 << 20;
  std::array<std::uint8_t, 4096> room;
  const std::size_t count = ReadPort(room);
  early_.insert(early_.end(), room.begin(), room.begin() + static_cast<std::ptrdiff_t>(count));
  if (early_.size() > MOST_EARLY) throw LinkFailure(fmt::format("{} sends without end and unasked", port_));
}

std::size_t Link::ReceiveWaiting(std::span<std::uint8_t> room) {
  if (early_.empty()) return ReadPort(room);
  const auto count = static_cast<std::ptrdiff_t>(std::min(room.size(), early_.size()));
  std::copy_n(early_.begin(), count, room.begin());
  early_.erase(early_.begin(), early_.begin() + count);
  return static_cast<std::size_t>(count);
}

std::size_t Link::ReadPort(std::span<std::uint8_t> room) {
  const ssize_t count = server_ ? server_->Read(room) : read(descriptor_.Get(), room.data(), room.size());
  if (count < 0 && MayTryAgain()) return 0;
  if (count <= 0) {
    throw LinkLost(fmt::format("{} has hung up{}{}", port_, count < 0 ? ": " : "",
                               count < 0 ? std::strerror(errno) : ""));
  }
  const auto received = static_cast<std::size_t>(count);
  if (trace_ != nullptr) trace_->Received(room.first(received));
  return received;
}

std::size_t Link::Receive(std::span<std::uint8_t> room, Clock::time_point deadline) {
  std::size_t received = 0;
  while (received < room.size() && (!early_.empty() || WaitFor(POLLIN, deadline)))
    received += ReceiveWaiting(room.subspan(received));
  return received;
}

void Link::DiscardInput(Clock::time_point deadline) {
  std::array<std::uint8_t, 4096> stale;
  while (ReceiveWaiting(stale) != 0) {
    if (Clock::now() >= deadline) throw LinkFailure(fmt::format("{} sends without end and unasked", port_));
  }
}

void Link::Remark(const std::string& text) {
  if (trace_ != nullptr) trace_->Remark(text);
}

}  // namespace station
