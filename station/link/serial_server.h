// A phone's serial port at a server that speaks RFC 2217: Telnet, with an option that sets the port up.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <set>
#include <span>
#include <string>

#include "posix/file_descriptor.h"
#include "station/link/telnet.h"

namespace station {

class SerialServer {
 public:
  // Connects to "HOST:PORT", agrees on binary transfer, and sets 115200 baud, 8 data bits, no parity, one
  // stop bit and no handshake. Throws LinkFailure, which says what the server refuses.
  explicit SerialServer(const std::string& address);

  int Number() const {
    return descriptor_.Get();
  }

  // The server wants nothing more to be sent for now. Only Read can learn that this is over.
  bool IsSuspended() const {
    return suspended_;
  }

  // As write() and read() on a port that does not block: what is counted is data.
  ssize_t Write(std::span<const std::uint8_t> data);
  ssize_t Read(std::span<std::uint8_t> room);

 private:
  using Time = std::chrono::steady_clock::time_point;

  void Negotiate();
  void SetPortUp();
  bool Agreed() const;
  // Takes what the server sends until `done` says so.
  void Await(const std::function<bool()>& done, Time deadline);
  void Take(const Bytes& command);
  void TakeOption(std::uint8_t verb, std::uint8_t option);
  void Reply(std::initializer_list<std::uint8_t> command);
  void FlushReplies();

  std::string name_;
  posix::FileDescriptor descriptor_;
  telnet::Decoder decoder_;
  Bytes replies_;
  bool suspended_ = false;
  bool half_sent_ = false;  // the first of the two bytes that stand for 0xFF is on its way
  std::set<std::pair<std::uint8_t, std::uint8_t>> said_;  // by the server: a verb and its option
  std::map<std::uint8_t, Bytes> set_;                     // what the server says that it has set
};

}  // namespace station
