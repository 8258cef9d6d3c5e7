// Bytes in hexadecimal text: two capital digits each.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace posix {

inline std::string HexText(std::span<const uint8_t> bytes, std::string_view separator = {}) {
  static constexpr char DIGITS[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size() * (2 + separator.size()));
  for (const uint8_t byte : bytes) {
    if (!text.empty()) text += separator;
    text += DIGITS[byte >> 4];
    text += DIGITS[byte & 0xF];
  }
  return text;
}

}  // namespace posix
