#include "web/base64.h"

namespace web {

std::string Base64(std::span<const uint8_t> bytes) {
  static constexpr char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t place = 0; place < bytes.size(); place += 3) {
    const size_t count = bytes.size() - place;
    const uint32_t group = static_cast<uint32_t>(bytes[place]) << 16 |
                           static_cast<uint32_t>(count > 1 ? bytes[place + 1] : 0) << 8 |
                           static_cast<uint32_t>(count > 2 ? bytes[place + 2] : 0);
    text += DIGITS[group >> 18];
    text += DIGITS[group >> 12 & 63];
    text += count > 1 ? DIGITS[group >> 6 & 63] : '=';
    text += count > 2 ? DIGITS[group & 63] : '=';
  }
  return text;
}

}  // namespace web
