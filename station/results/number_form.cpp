#include "station/results/number_form.h"

#include <fmt/format.h>

#include <algorithm>

#include "station/commands/errors.h"

namespace station {

namespace {

constexpr std::size_t IDENTITY_DIGITS = 15;
constexpr std::size_t ADDRESS_LENGTH = 17;

// ISO/IEC 7812-1, annex B: from the right, every second digit counts twice.
int CheckDigit(const std::string& digits) {
  int sum = 0;
  bool twice = true;
  for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit, twice = !twice) {
    const int value = (*digit - '0') * (twice ? 2 : 1);
    sum += value > 9 ? value - 9 : value;
  }
  return (10 - sum % 10) % 10;
}

bool IsIdentity(const std::string& text) {
  return (text.size() == IDENTITY_DIGITS || text.size() == IDENTITY_DIGITS - 1) &&
         std::ranges::all_of(text, [](char one) { return one >= '0' && one <= '9'; });
}

bool IsAddress(const std::string& text) {
  if (text.size() != ADDRESS_LENGTH) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool right = i % 3 == 2 ? text[i] == ':' : std::isxdigit(static_cast<unsigned char>(text[i])) != 0;
    if (!right) return false;
  }
  return true;
}

std::int64_t AddressNumber(std::string text) {
  std::erase(text, ':');
  return std::stoll(text, nullptr, 16);
}

// The number without the last digit; the next or last one whose whole text is within the bound.
std::int64_t IdentityBound(const std::string& text, bool upper) {
  const std::int64_t number = std::stoll(text.substr(0, IDENTITY_DIGITS - 1));
  if (text.size() < IDENTITY_DIGITS) return number;
  const std::string whole = NumberText("identity", number);
  if (upper) return whole <= text ? number : number - 1;
  return whole >= text ? number : number + 1;
}

}  // namespace

std::string NumberText(const std::string& kind, std::int64_t number) {
  if (kind == "identity") {
    const std::string digits = fmt::format("{:014}", number);
    return digits + std::to_string(CheckDigit(digits));
  }
  std::string text = fmt::format("{:012X}", number);
  for (std::size_t at = text.size() - 2; at > 0; at -= 2) text.insert(at, ":");
  return text;
}

NumberRange ParseNumberRange(const std::string& text) {
  const std::size_t dash = text.find('-');
  const std::string first = text.substr(0, dash);
  const std::string last = dash == std::string::npos ? first : text.substr(dash + 1);
  NumberRange range;
  if (IsIdentity(first) && IsIdentity(last) && first.size() == last.size()) {
    range = {"identity", IdentityBound(first, false), IdentityBound(last, true)};
    if (first == last && range.first > range.last) {
      throw UsageError(fmt::format("{} is no identity: its last digit must be {}", text,
                                   CheckDigit(text.substr(0, IDENTITY_DIGITS - 1))));
    }
  } else if (IsAddress(first) && IsAddress(last)) {
    range = {"address", AddressNumber(first), AddressNumber(last)};
  } else {
    throw UsageError(fmt::format(
        "'{}' is no range: it is like 00499901064000-00499901064999 or 00:02:5B:0A:00:00-00:02:5B:0A:FF:FF",
        text));
  }
  if (range.first > range.last) throw UsageError(fmt::format("there is no number in the range {}", text));
  return range;
}

std::string StoredSpelling(std::string text) {
  if (!IsAddress(text)) return text;
  for (char& one : text) one = static_cast<char>(std::toupper(static_cast<unsigned char>(one)));
  return text;
}

}  // namespace station
