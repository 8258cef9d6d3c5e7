#include "station/tasks/jpeg_check.h"

#include <fmt/format.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

// The library's header needs <cstdio> before it.
#include <jpeglib.h>

namespace station {

namespace {

// The library reports an error by a jump that must not pass a destructor, so this object is a plain record.
struct Decoder {
  jpeg_decompress_struct jpeg;
  jpeg_error_mgr errors;
  std::jmp_buf failed;
  char fault[JMSG_LENGTH_MAX];
  std::size_t rest;  // bytes after the picture
};

// The camera has 1200 x 1600. A damaged or hostile header must not cost memory or time.
constexpr std::size_t MOST_PIXELS = 2u << 20;

void Fail(j_common_ptr jpeg) {
  auto* decoder = static_cast<Decoder*>(jpeg->client_data);
  if (decoder->fault[0] == '\0') jpeg->err->format_message(jpeg, decoder->fault);
  std::longjmp(decoder->failed, 1);
}

// A warning means data that no encoder makes: the picture is damaged. The first one is kept.
void Warn(j_common_ptr jpeg, int level) {
  auto* decoder = static_cast<Decoder*>(jpeg->client_data);
  if (level < 0 && decoder->fault[0] == '\0') jpeg->err->format_message(jpeg, decoder->fault);
}

// Where the decoded lines go.
struct Lines {
  std::uint8_t* first;
  std::size_t step;  // from one line to the next; 0: all go to the same place
};

// Without a step, the line has room for one of the largest picture, in the file's own colours; with a step,
// they are red, green and blue.
void Decode(Decoder& decoder, std::span<const std::uint8_t> file, const Lines& lines) {
  jpeg_decompress_struct& jpeg = decoder.jpeg;
  jpeg.err = jpeg_std_error(&decoder.errors);
  decoder.errors.error_exit = Fail;
  decoder.errors.emit_message = Warn;
  jpeg.client_data = &decoder;
  if (setjmp(decoder.failed) == 0) {
    jpeg_create_decompress(&jpeg);
    jpeg_mem_src(&jpeg, file.data(), file.size());
    jpeg_read_header(&jpeg, TRUE);
    const bool large = std::size_t{jpeg.image_width} * jpeg.image_height > MOST_PIXELS;
    if (large || jpeg.progressive_mode) {
      std::strcpy(decoder.fault, large ? "it claims to be larger than any camera picture"
                                       : "it is progressive, and no camera picture is");
      Fail(reinterpret_cast<j_common_ptr>(&jpeg));
    }
    jpeg.out_color_space = lines.step == 0 ? jpeg.jpeg_color_space : JCS_RGB;
    jpeg_start_decompress(&jpeg);
    while (jpeg.output_scanline < jpeg.output_height) {
      std::uint8_t* line = lines.first + jpeg.output_scanline * lines.step;
      jpeg_read_scanlines(&jpeg, &line, 1);
    }
    jpeg_finish_decompress(&jpeg);
    decoder.rest = jpeg.src->bytes_in_buffer;
  }
  jpeg_destroy_decompress(&jpeg);
}

}  // namespace

JpegCheck CheckJpeg(std::span<const std::uint8_t> file) {
  constexpr std::size_t MOST_COMPONENTS = 4;
  std::vector<std::uint8_t> row(MOST_COMPONENTS * JPEG_MAX_DIMENSION);
  Decoder decoder{};
  Decode(decoder, file, {row.data(), 0});
  JpegCheck check{decoder.fault, decoder.jpeg.image_width, decoder.jpeg.image_height};
  if (check.fault.empty() && decoder.rest != 0) {
    check.fault = fmt::format("{} bytes follow the picture", decoder.rest);
  }
  return check;
}

Pixels DecodeJpeg(std::span<const std::uint8_t> file) {
  constexpr std::size_t COLOURS = 3;
  const JpegCheck check = CheckJpeg(file);
  if (!check.fault.empty()) throw std::runtime_error(check.fault);
  Pixels pixels{check.width, check.height, {}};
  pixels.levels.resize(pixels.width * pixels.height * COLOURS);
  Decoder decoder{};
  Decode(decoder, file, {pixels.levels.data(), pixels.width * COLOURS});
  if (decoder.fault[0] != '\0') throw std::runtime_error(decoder.fault);
  return pixels;
}

}  // namespace station
