// Numbers that are given out once: identities of 15 digits, and Bluetooth addresses. In a range they are
// counted without the identity's last digit, which is computed from the others.
#pragma once

#include <cstdint>
#include <string>

namespace station {

struct NumberRange {
  std::string kind;  // "identity" or "address"
  std::int64_t first = 0;
  std::int64_t last = 0;
};

// "004999010640000-004999010649999", with or without the last digit, or
// "00:02:5B:0A:00:00-00:02:5B:0A:FF:FF", or a single number. Of identities with 15 digits, the range holds
// those whose last digit is right. Throws UsageError, also for a single identity whose last digit is wrong,
// and for a range without a number.
NumberRange ParseNumberRange(const std::string& text);

// The whole number: "004999010640000", "00:02:5B:0A:FF:10".
std::string NumberText(const std::string& kind, std::int64_t number);

// A Bluetooth address in capital letters, as all are stored; any other text as it is.
std::string StoredSpelling(std::string text);

}  // namespace station
