#include "station/commands/check_digit.h"

#include <fmt/format.h>

#include <algorithm>

namespace station {

namespace {

// Every second digit, from the last one, is doubled, and the digits of all results are added.
char CheckDigitOf(std::string_view digits) {
  int sum = 0;
  bool doubled = true;
  for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit, doubled = !doubled) {
    const int value = (*digit - '0') * (doubled ? 2 : 1);
    sum += value / 10 + value % 10;
  }
  return static_cast<char>('0' + (10 - sum % 10) % 10);
}

}  // namespace

std::string CheckDigitFault(std::string_view number) {
  const auto is_digit = [](char character) { return character >= '0' && character <= '9'; };
  if (number.empty() || !std::ranges::all_of(number, is_digit)) return "it is not a number of decimal digits";
  const char right = CheckDigitOf(number.substr(0, number.size() - 1));
  if (number.back() == right) return "";
  return fmt::format("its last digit, the check digit, is {} instead of {}", number.back(), right);
}

}  // namespace station
