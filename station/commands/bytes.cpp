#include "station/commands/bytes.h"

#include <fmt/format.h>

#include "posix/hex.h"
#include "station/commands/errors.h"

namespace station {

namespace {

int HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

bool IsSeparator(char character) {
  return character == ' ' || character == ',' || character == ':' || character == '\n' || character == '\r';
}

}  // namespace

void AppendWord(Bytes& to, std::uint32_t word) {
  for (int shift = 0; shift < 32; shift += 8) to.push_back(static_cast<std::uint8_t>(word >> shift));
}

std::uint32_t WordAt(std::span<const std::uint8_t> bytes, std::size_t offset) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < 4; ++i) word |= std::uint32_t{bytes[offset + i]} << (8 * i);
  return word;
}

std::string HexText(std::span<const std::uint8_t> bytes, std::string_view separator) {
  return posix::HexText(bytes, separator);
}

Bytes BytesFromHex(std::string_view text) {
  Bytes bytes;
  for (std::size_t i = 0; i < text.size();) {
    if (IsSeparator(text[i])) {
      ++i;
      continue;
    }
    const int high = HexDigit(text[i]);
    const int low = i + 1 < text.size() ? HexDigit(text[i + 1]) : -1;
    if (high < 0 || low < 0) {
      throw UsageError(fmt::format("'{}' is not a row of two-digit hexadecimal bytes", text));
    }
    bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    i += 2;
  }
  return bytes;
}

std::string PrintableText(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    if (byte == '\r') {
      text += "\\r";
    } else if (byte == '\n') {
      text += "\\n";
    } else if (byte == '\t') {
      text += "\\t";
    } else if (byte == '\\') {
      text += "\\\\";
    } else if (byte < 0x20 || byte > 0x7E) {
      text += fmt::format("\\x{:02X}", byte);
    } else {
      text += static_cast<char>(byte);
    }
  }
  return text;
}

}  // namespace station
