// The check digit at the end of an identity number, after ISO/IEC 7812-1, annex B (the Luhn formula).
#pragma once

#include <string>
#include <string_view>

namespace station {

// What is wrong with a number's last digit; empty if it is right. Anything but decimal digits is wrong too.
std::string CheckDigitFault(std::string_view number);

}  // namespace station
