// Words of a command that a person gives to the phone.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace simulator {

// Decimal, or hexadecimal with 0x. Throws std::invalid_argument with a sentence.
inline int64_t NumberWord(const std::string& word) {
  size_t used = 0;
  int64_t number = 0;
  try {
    number = std::stoll(word, &used, 0);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != word.size()) throw std::invalid_argument("\"" + word + "\" is not a number.");
  return number;
}

}  // namespace simulator
