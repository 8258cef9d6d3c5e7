// The phone's result codes with their names and meanings. A negative status is a failure.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace station {

struct ResultCode {
  std::int32_t code;
  const char* name;
  const char* meaning;
};

std::span<const ResultCode> ResultCodes();

// The name of a result code, such as "OPEN_FAILED"; empty for a number that is none.
std::string StatusName(std::int32_t status);

// What a status means in general; a command's own table may say it more closely.
std::string StatusMeaning(std::int32_t status);

}  // namespace station
