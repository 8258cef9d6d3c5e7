// Decodes a JPEG file, to tell a whole picture from one that was cut or damaged on its way.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace station {

struct JpegCheck {
  std::string fault;  // empty for a whole picture
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

JpegCheck CheckJpeg(std::span<const std::uint8_t> file);

}  // namespace station
