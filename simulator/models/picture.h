// Pictures in the three colours: from the PC's picture files, to another size, to a PNG file.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

struct Picture {
  unsigned width = 0;
  unsigned height = 0;
  std::vector<uint8_t> levels;  // red, green, blue of each pixel, rows from top to bottom
};

// Reads the bytes of a PNG or JPEG file. Throws std::runtime_error with the reason for any other content, and
// for a file that is damaged or not whole.
Picture ReadPicture(std::string_view file);

// The same picture in another size, its sides stretched as needed: each pixel is the mean of what lies under
// it.
Picture Resize(const Picture& picture, unsigned width, unsigned height);

// The bytes of the file.
std::string EncodePng(std::span<const uint16_t> pixels, unsigned width, unsigned height);

}  // namespace simulator
