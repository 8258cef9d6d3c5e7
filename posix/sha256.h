// The SHA-256 (FIPS 180-4) by which both PC programs name a file's content.
#pragma once

#include <string>
#include <string_view>

namespace posix {

// In lower-case hexadecimal.
std::string Sha256(std::string_view content);

}  // namespace posix
