// Bytes in an event's text (RFC 4648).
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace web {

std::string Base64(std::span<const uint8_t> bytes);

}  // namespace web
