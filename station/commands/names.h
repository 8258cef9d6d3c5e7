// Names of the numbers that the phone answers: result codes, keys, crosses.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace station {

// The name of a result code, such as "OPEN_FAILED"; empty for a number that is no result code.
std::string StatusName(std::int32_t status);

// What a status means in general; a command's own statement may say it more closely.
std::string StatusText(std::int32_t status);

// "power", by the high byte of a key code.
std::string KeyName(std::uint32_t key_code);

// The places of the crosses whose bits are set.
std::vector<std::string> CrossNames(std::uint32_t crosses);

}  // namespace station
