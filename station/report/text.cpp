#include "station/report/text.h"

#include <cstddef>

namespace station {

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char character : text) {
    switch (character) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&apos;";
        break;
      default: {
        const auto code = static_cast<unsigned char>(character);
        const bool forbidden = code < 0x20 && character != '\n' && character != '\r' && character != '\t';
        escaped += forbidden ? '?' : character;
      }
    }
  }
  return escaped;
}

std::string Base64(std::span<const std::uint8_t> bytes) {
  constexpr char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t left = bytes.size() - i;
    const std::uint32_t group = std::uint32_t{bytes[i]} << 16 |
                                (left > 1 ? std::uint32_t{bytes[i + 1]} << 8 : 0) |
                                (left > 2 ? std::uint32_t{bytes[i + 2]} : 0);
    text += DIGITS[group >> 18 & 63];
    text += DIGITS[group >> 12 & 63];
    text += left > 1 ? DIGITS[group >> 6 & 63] : '=';
    text += left > 2 ? DIGITS[group & 63] : '=';
  }
  return text;
}

}  // namespace station
