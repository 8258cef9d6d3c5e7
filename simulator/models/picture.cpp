#include "simulator/models/picture.h"

#include <jpeglib.h>
#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace simulator {

namespace {

using std::string_view_literals::operator""sv;

constexpr size_t COLOURS = 3;

void MakeRoom(Picture& picture, unsigned width, unsigned height) {
  picture.width = width;
  picture.height = height;
  picture.levels.resize(size_t{width} * height * COLOURS);
}

Picture ReadPng(std::string_view file) {
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  Picture picture;
  if (png_image_begin_read_from_memory(&image, file.data(), file.size())) {
    image.format = PNG_FORMAT_RGB;
    MakeRoom(picture, image.width, image.height);
    // Where the picture is transparent, black shows.
    png_image_finish_read(&image, nullptr, picture.levels.data(), 0, nullptr);
  }
  if (PNG_IMAGE_FAILED(image)) throw std::runtime_error(image.message);
  return picture;
}

struct JpegErrors {
  jpeg_error_mgr manager;  // first: the library hands its address to the functions below
  jmp_buf failed;
  char message[JMSG_LENGTH_MAX];
};

void FailJpeg(j_common_ptr codec) {
  auto* errors = reinterpret_cast<JpegErrors*>(codec->err);
  errors->manager.format_message(codec, errors->message);
  longjmp(errors->failed, 1);
}

// A negative level is a warning: the library goes on with data that are damaged or end too early.
void FailJpegAtWarning(j_common_ptr codec, int level) {
  if (level < 0) FailJpeg(codec);
}

// No object with a destructor may live here, for the library's errors leave by longjmp.
bool ReadJpeg(std::string_view file, Picture& picture, JpegErrors& errors) {
  jpeg_decompress_struct codec = {};
  codec.err = jpeg_std_error(&errors.manager);
  errors.manager.error_exit = FailJpeg;
  errors.manager.emit_message = FailJpegAtWarning;
  if (setjmp(errors.failed) != 0) {
    jpeg_destroy_decompress(&codec);
    return false;
  }
  jpeg_create_decompress(&codec);
  jpeg_mem_src(&codec, reinterpret_cast<const unsigned char*>(file.data()), file.size());
  jpeg_read_header(&codec, TRUE);
  codec.out_color_space = JCS_RGB;
  jpeg_start_decompress(&codec);
  MakeRoom(picture, codec.output_width, codec.output_height);
  while (codec.output_scanline < codec.output_height) {
    JSAMPROW row = &picture.levels[codec.output_scanline * size_t{picture.width} * COLOURS];
    jpeg_read_scanlines(&codec, &row, 1);
  }
  jpeg_finish_decompress(&codec);
  jpeg_destroy_decompress(&codec);
  return true;
}

// Resizes along the rows and returns the result turned over its diagonal, so that a second call does the same
// for the columns and turns it back.
std::vector<float> ResizeRowsAndTranspose(const std::vector<float>& levels, unsigned width, unsigned height,
                                          unsigned new_width) {
  std::vector<float> resized(size_t{new_width} * height * COLOURS);
  const double step = static_cast<double>(width) / new_width;
  for (unsigned x = 0; x < new_width; ++x) {
    const double start = x * step;
    const double end = start + step;
    const auto first = static_cast<unsigned>(start);
    const unsigned last = std::min(static_cast<unsigned>(end), width - 1);
    for (unsigned source = first; source <= last; ++source) {
      const double covered = std::min(end, source + 1.0) - std::max(start, static_cast<double>(source));
      const auto weight = static_cast<float>(covered / step);
      for (unsigned y = 0; y < height; ++y) {
        for (size_t colour = 0; colour < COLOURS; ++colour) {
          resized[(size_t{x} * height + y) * COLOURS + colour] +=
              weight * levels[(size_t{y} * width + source) * COLOURS + colour];
        }
      }
    }
  }
  return resized;
}

}  // namespace

Picture ReadPicture(std::string_view file) {
  if (file.starts_with("\x89PNG"sv)) return ReadPng(file);
  if (!file.starts_with("\xFF\xD8"sv)) throw std::runtime_error("it is neither PNG nor JPEG");
  Picture picture;
  JpegErrors errors;
  if (!ReadJpeg(file, picture, errors)) throw std::runtime_error(errors.message);
  return picture;
}

Picture Resize(const Picture& picture, unsigned width, unsigned height) {
  if (picture.width == width && picture.height == height) return picture;
  Picture resized;
  MakeRoom(resized, width, height);
  if (resized.levels.empty()) return resized;
  std::vector<float> levels(picture.levels.begin(), picture.levels.end());
  levels = ResizeRowsAndTranspose(levels, picture.width, picture.height, width);
  levels = ResizeRowsAndTranspose(levels, picture.height, width, height);
  std::ranges::transform(levels, resized.levels.begin(),
                         [](float level) { return static_cast<uint8_t>(level + 0.5F); });
  return resized;
}

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
