// The host's side of the serial link in tests: bytes out, bytes in, and the assurance that nothing more
// comes.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "posix/file_descriptor.h"

using Bytes = std::vector<uint8_t>;
using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

// 32-bit words as they go over the link, low byte first.
Bytes Words(std::initializer_list<uint32_t> words);
Bytes FromText(std::string_view text);
Bytes operator+(Bytes left, const Bytes& right);
// The 32-bit word at a byte offset.
uint32_t WordAt(const Bytes& bytes, size_t offset);
int32_t StatusOf(const Bytes& answer);

class HostLine {
 public:
  HostLine() = default;
  explicit HostLine(const std::string& port);

  void Send(const Bytes& bytes);
  // Exactly so many bytes; those that came if the time is over before, or the sender has gone.
  Bytes Receive(
      size_t count, std::chrono::milliseconds time_out = 10s,
      const std::function<bool()>& sender_lives = [] { return true; });
  // True if no byte comes within the time.
  bool IsQuiet(std::chrono::milliseconds time = 50ms);

 private:
  posix::FileDescriptor port_;
};
