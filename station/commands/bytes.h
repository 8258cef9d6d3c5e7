// Byte strings as the serial line carries them: numbers are little-endian 32-bit words.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace station {

using Bytes = std::vector<std::uint8_t>;

void AppendWord(Bytes& to, std::uint32_t word);
std::uint32_t WordAt(std::span<const std::uint8_t> bytes, std::size_t offset);

// "00 0A FF", or "000AFF" with an empty separator.
std::string HexText(std::span<const std::uint8_t> bytes, std::string_view separator = " ");

// Takes hexadecimal digits in pairs, with blanks, commas or colons between the pairs. Throws UsageError.
Bytes BytesFromHex(std::string_view text);

// The bytes as text that any terminal and JSON take: what is not printable ASCII becomes \r, \n, \t or \xNN.
std::string PrintableText(std::span<const std::uint8_t> bytes);

}  // namespace station
