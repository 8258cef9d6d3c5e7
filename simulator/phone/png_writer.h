// RGB565 pixels as a PNG picture.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace simulator {

// The bytes of the file.
std::string EncodePng(std::span<const uint16_t> pixels, unsigned width, unsigned height);

}  // namespace simulator
