// A trace file: every byte on the link, with direction and time, as text. A line is the time in seconds, a
// direction ('>' to the phone, '<' from it, '#' a remark) and the bytes in hexadecimal or the remark.
#pragma once

#include <chrono>
#include <cstdint>
#include <fstream>
#include <span>
#include <string>

namespace station {

class Trace {
 public:
  // Truncates the file. Throws UsageError when it cannot be written.
  Trace(const std::string& path, const std::string& port);

  void Sent(std::span<const std::uint8_t> bytes);
  void Received(std::span<const std::uint8_t> bytes);
  void Remark(const std::string& text);

 private:
  void Line(char direction, const std::string& text);

  std::ofstream file_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace station
