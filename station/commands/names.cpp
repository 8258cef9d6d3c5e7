#include "station/commands/names.h"

#include <fmt/format.h>

#include <algorithm>

#include "protocol/result_codes.h"
#include "protocol/selectors.h"

namespace station {

namespace {

const ResultCode* FindResultCode(std::int32_t status) {
  const auto found = std::ranges::find(RESULT_CODE_TABLE, status, &ResultCode::code);
  return found == std::end(RESULT_CODE_TABLE) ? nullptr : found;
}

}  // namespace

std::string StatusName(std::int32_t status) {
  const ResultCode* known = FindResultCode(status);
  return known != nullptr ? known->name : "";
}

std::string StatusText(std::int32_t status) {
  const ResultCode* known = FindResultCode(status);
  if (known != nullptr) return known->meaning;
  return status < 0 ? "unknown failure" : "success";
}

std::string KeyName(std::uint32_t key_code) {
  if (key_code == 0) return "none yet";
  const auto high = static_cast<std::uint8_t>(key_code >> 8);
  if (high == UNKNOWN_KEY) return fmt::format("unknown key (state 0x{:02X})", key_code & 0xFF);
  const auto known = std::ranges::find(KEYPAD_KEYS, high, &KeypadKey::code);
  if (known == std::end(KEYPAD_KEYS)) return fmt::format("key 0x{:02X}", high);
  return known->name;
}

std::vector<std::string> CrossNames(std::uint32_t crosses) {
  std::vector<std::string> names;
  std::uint32_t bit = 1;
  for (const TouchCross& cross : TOUCH_CROSSES) {
    if ((crosses & bit) != 0) names.emplace_back(cross.place);
    bit <<= 1;
  }
  return names;
}

}  // namespace station
