// Text as XML and HTML take it, and bytes as data URIs take them.
#pragma once

#include <string>
#include <string_view>

#include "station/commands/bytes.h"

namespace station {

// The five special characters become entities; characters that XML 1.0 forbids become question marks.
std::string Escaped(std::string_view text);

// RFC 4648, with padding.
std::string Base64(std::span<const std::uint8_t> bytes);

}  // namespace station
