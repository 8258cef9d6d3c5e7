// A picture as an event's text.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace simulator {

// JSON: {"runs": base64} of pairs of 16-bit words, how many pixels and their colour, or {"pixels": base64} of
// all of them where that is shorter. Little-endian RGB565.
std::string PictureText(std::span<const uint16_t> pixels);

}  // namespace simulator
