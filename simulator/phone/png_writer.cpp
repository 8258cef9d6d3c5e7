#include "simulator/phone/png_writer.h"

#include <png.h>

#include <stdexcept>
#include <vector>

namespace simulator {
namespace {

// A field of `bits` bits spread over 0 to 255.
uint8_t Spread(unsigned value, unsigned bits) {
  const unsigned most = (1u << bits) - 1;
  return static_cast<uint8_t>((value * 255 + most / 2) / most);
}

}  // namespace

std::string EncodePng(std::span<const uint16_t> pixels, unsigned width, unsigned height) {
  std::vector<uint8_t> colours;
  colours.reserve(pixels.size() * 3);
  for (uint16_t pixel : pixels) {
    colours.push_back(Spread(pixel >> 11, 5));
    colours.push_back(Spread(pixel >> 5 & 0x3F, 6));
    colours.push_back(Spread(pixel & 0x1F, 5));
  }
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  image.width = width;
  image.height = height;
  image.format = PNG_FORMAT_RGB;
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
  std::string file(size, '\0');
  if (!png_image_write_to_memory(&image, file.data(), &size, 0, colours.data(), 0, nullptr)) {
    throw std::runtime_error(image.message);
  }
  file.resize(size);
  return file;
}

}  // namespace simulator
