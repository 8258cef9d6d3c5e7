// Bytes in hexadecimal text: two capital digits each, nothing between them.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace posix {

inline std::string HexText(std::span<const uint8_t> bytes) {
  static constexpr char DIGITS[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const uint8_t byte : bytes) {
    text += DIGITS[byte >> 4];
    text += DIGITS[byte & 0xF];
  }
  return text;
}

}  // namespace posix
