#include "station/commands/keys.h"

#include <fmt/format.h>

#include <algorithm>

namespace station {

std::string KeyName(std::uint32_t key_code) {
  if (key_code == 0) return "none yet";
  const auto high = static_cast<std::uint8_t>(key_code >> 8);
  if (high == UNKNOWN_KEY) return fmt::format("unknown key (state 0x{:02X})", key_code & 0xFF);
  const auto known = std::ranges::find(KEYS, high, &Key::code);
  if (known == KEYS.end()) return fmt::format("key 0x{:02X}", high);
  return known->name;
}

std::vector<std::string> CrossNames(std::uint32_t crosses) {
  constexpr std::array<const char*, 5> PLACES = {"top left", "top right", "bottom left", "bottom right",
                                                 "centre"};
  std::vector<std::string> names;
  for (std::size_t bit = 0; bit < PLACES.size(); ++bit) {
    if ((crosses >> bit & 1) != 0) names.emplace_back(PLACES[bit]);
  }
  return names;
}

}  // namespace station
