#include "station/commands/clean_text.h"

#include <fmt/format.h>

#include <algorithm>

namespace station {

namespace {

constexpr const char* REPLACEMENT = "\xEF\xBF\xBD";  // U+FFFD

struct Character {
  char32_t code = 0;
  std::size_t length = 0;  // in bytes; 0 if the bytes are not UTF-8
};

// The text is not empty. Overlong forms, surrogates and codes above U+10FFFF are not UTF-8.
Character FirstCharacter(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {lead, 1};
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return {};
  char32_t code = lead & (0x7F >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return {};
    code = code << 6 | (byte(i) & 0x3F);
  }
  const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  if (overlong || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return {};
  return {code, length};
}

bool Harmless(char32_t code) {
  if (code < 0x20) return code == '\n' || code == '\t';
  return !(code >= 0x7F && code < 0xA0) && (code & 0xFFFE) != 0xFFFE;
}

}  // namespace

std::string CleanText(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  while (!text.empty()) {
    if (text.starts_with("\r\n")) text.remove_prefix(1);
    const auto [code, length] = FirstCharacter(text);
    if (length == 0) {
      clean += REPLACEMENT;
    } else if (Harmless(code)) {
      clean += text.substr(0, length);
    } else {
      clean += '?';
    }
    text.remove_prefix(std::max<std::size_t>(1, length));
  }
  return clean;
}

std::string JsonText(const nlohmann::ordered_json& value) {
  using nlohmann::ordered_json;
  const std::string raw = value.dump(2, ' ', false, ordered_json::error_handler_t::replace);
  // The library escapes the control characters below 0x20 only.
  std::string text;
  text.reserve(raw.size());
  for (std::size_t i = 0; i < raw.size(); ++i) {
    const auto byte = static_cast<unsigned char>(raw[i]);
    const unsigned char next = i + 1 < raw.size() ? static_cast<unsigned char>(raw[i + 1]) : 0;
    if (byte == 0x7F) {
      text += "\\u007f";
    } else if (byte == 0xC2 && next >= 0x80 && next < 0xA0) {
      text += fmt::format("\\u{:04x}", next);
      ++i;
    } else {
      text += raw[i];
    }
  }
  return text;
}

}  // namespace station
