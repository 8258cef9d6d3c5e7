// Decodes a JPEG file, to tell a whole picture from one that was cut or damaged on its way, and to measure
// it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace station {

struct JpegCheck {
  std::string fault;  // empty for a whole picture
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

JpegCheck CheckJpeg(std::span<const std::uint8_t> file);

struct Pixels {
  std::size_t width = 0;
  std::size_t height = 0;
  std::vector<std::uint8_t> levels;  // red, green, blue of each pixel, rows from top to bottom
};

// The pixels of a file in which CheckJpeg finds no fault. Throws std::runtime_error if its colours cannot be
// red, green and blue.
Pixels DecodeJpeg(std::span<const std::uint8_t> file);

}  // namespace station
