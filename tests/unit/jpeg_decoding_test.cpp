// The encoder's pictures, decoded by libjpeg-turbo and measured against their source, and against what
// libjpeg-turbo's own encoder makes of the same frame with the same quantization and subsampling.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <numbers>

#include "tests/camera_scene.h"
#include "tests/unit/encoded_picture.h"
#include "tests/unit/jpeg_decoding.h"

namespace {

struct Decoded {
  int width = 0, height = 0;
  long warnings = 0;
  bool jfif = false;
  std::vector<int> sampling;                 // across and down, component by component
  std::vector<std::vector<unsigned>> steps;  // quantization tables, by rows
  std::vector<uint8_t> levels;               // three a pixel
};

Decoded Decode(const std::vector<uint8_t>& picture, J_COLOR_SPACE space) {
  Decoded decoded;
  jpeg_decompress_struct codec{};
  jpeg_error_mgr errors{};
  StartReading(picture, &codec, &errors);
  codec.out_color_space = space;
  codec.dct_method = JDCT_ISLOW;
  decoded.jfif = codec.saw_JFIF_marker != 0;
  for (int i = 0; i < codec.num_components; ++i) {
    decoded.sampling.push_back(codec.comp_info[i].h_samp_factor);
    decoded.sampling.push_back(codec.comp_info[i].v_samp_factor);
  }
  for (int i = 0; i < 2; ++i) {
    const JQUANT_TBL* table = codec.quant_tbl_ptrs[i];
    decoded.steps.emplace_back(table->quantval, table->quantval + 64);
  }
  jpeg_start_decompress(&codec);
  decoded.width = static_cast<int>(codec.output_width);
  decoded.height = static_cast<int>(codec.output_height);
  const size_t rowSize = 3 * size_t{codec.output_width};
  decoded.levels.resize(rowSize * codec.output_height);
  while (codec.output_scanline < codec.output_height) {
    JSAMPROW row = &decoded.levels[codec.output_scanline * rowSize];
    jpeg_read_scanlines(&codec, &row, 1);
  }
  jpeg_finish_decompress(&codec);
  decoded.warnings = errors.num_warnings;
  jpeg_destroy_decompress(&codec);
  return decoded;
}

std::vector<uint8_t> PeerEncode(const std::vector<uint16_t>& frame, int width, int height,
                                const std::vector<std::vector<unsigned>>& steps) {
  jpeg_compress_struct codec{};
  jpeg_error_mgr errors{};
  codec.err = Strict(&errors);
  jpeg_create_compress(&codec);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&codec, &out, &size);
  codec.image_width = static_cast<JDIMENSION>(width);
  codec.image_height = static_cast<JDIMENSION>(height);
  codec.input_components = 3;
  codec.in_color_space = JCS_RGB;
  jpeg_set_defaults(&codec);  // 4:2:0
  codec.dct_method = JDCT_ISLOW;
  for (int i = 0; i < 2; ++i)
    jpeg_add_quant_table(&codec, i, steps[static_cast<size_t>(i)].data(), 100, TRUE);
  jpeg_start_compress(&codec, TRUE);
  std::vector<uint8_t> row;
  for (auto pixel = frame.begin(); codec.next_scanline < codec.image_height;) {
    row.clear();
    for (int x = 0; x < width; ++x) {
      const Rgb rgb = Widen(*pixel++);
      for (const int level : {rgb.red, rgb.green, rgb.blue}) row.push_back(static_cast<uint8_t>(level));
    }
    JSAMPROW start = row.data();
    jpeg_write_scanlines(&codec, &start, 1);
  }
  jpeg_finish_compress(&codec);
  jpeg_destroy_compress(&codec);
  std::vector<uint8_t> picture(out, out + size);
  free(out);
  return picture;
}

struct Errors {
  double luma = 0, rgb = 0;  // mean squares
  int largest = 0;           // of red, green and blue
};

Errors Measure(const std::vector<uint8_t>& picture, const std::vector<uint16_t>& frame) {
  const auto colours = Decode(picture, JCS_RGB);
  const auto components = Decode(picture, JCS_YCbCr);
  Errors errors;
  for (size_t i = 0; i < frame.size(); ++i) {
    const Rgb rgb = Widen(frame[i]);
    const double luma = 0.299 * rgb.red + 0.587 * rgb.green + 0.114 * rgb.blue;
    errors.luma += std::pow(components.levels[3 * i] - luma, 2);
    int offset = 0;
    for (const int level : {rgb.red, rgb.green, rgb.blue}) {
      const int error = std::abs(colours.levels[3 * i + static_cast<size_t>(offset++)] - level);
      errors.rgb += error * error / 3.0;
      errors.largest = std::max(errors.largest, error);
    }
  }
  errors.luma /= static_cast<double>(frame.size());
  errors.rgb /= static_cast<double>(frame.size());
  return errors;
}

std::vector<uint16_t> Draw(int width, int height, const std::function<int(int, int)>& pixel) {
  std::vector<uint16_t> frame;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) frame.push_back(static_cast<uint16_t>(pixel(x, y)));
  }
  return frame;
}

void ExpectRightCoefficients(const std::vector<uint16_t>& frame, int width, int height) {
  const Rounding rounding = CompareCoefficients(Encode(frame, width, height), frame, width, height);
  EXPECT_LT(rounding.worst, 1);  // one side or the other of the exact value
  EXPECT_LT(rounding.squares, rounding.least + 0.2);
}

TEST(JpegDecoding, GivesAWholePictureOfEverySize) {
  for (const auto& [width, height] :
       {std::pair{1, 1}, {7, 9}, {8, 8}, {16, 16}, {17, 33}, {31, 8}, {65500, 1}, {1, 65500}, {1200, 1600}}) {
    SCOPED_TRACE(testing::Message() << width << " x " << height);
    const auto frame = CameraScene(width, height);
    const auto picture = Encode(frame, width, height);
    ASSERT_FALSE(picture.empty());
    const auto decoded = Decode(picture, JCS_RGB);
    EXPECT_EQ(decoded.width, width);
    EXPECT_EQ(decoded.height, height);
    EXPECT_EQ(decoded.warnings, 0);
    EXPECT_TRUE(decoded.jfif);
    EXPECT_EQ(decoded.sampling, (std::vector{2, 2, 1, 1, 1, 1}));
    EXPECT_EQ(decoded.steps[0][0], 3U);  // quality 90
    EXPECT_EQ(decoded.steps[1][63], 20U);
    const Errors errors = Measure(picture, frame);
    EXPECT_LT(errors.luma, 4.0);
    EXPECT_LT(errors.rgb, 16.0);
  }
}

TEST(JpegDecoding, KeepsFlatColours) {
  for (const int pixel :
       {0x0000, 0xFFFF, 0xF800, 0x07E0, 0x001F, 0xFFE0, 0xF81F, 0x07FF, 0x8410, 0x1234, 0xC61A}) {
    for (const auto& [width, height] : {std::pair{1, 1}, {9, 7}, {32, 32}}) {
      const auto frame = Draw(width, height, [&](int, int) { return pixel; });
      EXPECT_LE(Measure(Encode(frame, width, height), frame).largest, 4) << std::hex << pixel;
    }
  }
}

TEST(JpegDecoding, HasTheRightCoefficientsForHostileContent) {
  constexpr int width = 128;
  constexpr int height = 96;
  const auto random = [](int x, int y) { return Scramble(static_cast<uint32_t>(1000 * y + x)); };
  const std::vector<std::pair<const char*, std::function<int(int, int)>>> contents = {
      {"checkerboard", [](int x, int y) { return (x + y) % 2 * 0xFFFF; }},
      {"checkerboard of 8", [](int x, int y) { return (x / 8 + y / 8) % 2 * 0xFFFF; }},
      {"checkerboard off the blocks", [](int x, int y) { return ((x + 3) / 5 + (y + 2) / 5) % 2 * 0xFFFF; }},
      {"upright lines", [](int x, int) { return x % 2 * 0xFFFF; }},
      {"level lines", [](int, int y) { return y % 2 * 0xFFFF; }},
      {"red and cyan", [](int x, int y) { return (x + y) % 2 == 0 ? 0xF800 : 0x07FF; }},
      {"blue and yellow", [](int x, int y) { return (x / 2 + y / 2) % 2 == 0 ? 0x001F : 0xFFE0; }},
      {"green and magenta", [](int x, int y) { return (x / 16 + y / 16) % 2 == 0 ? 0x07E0 : 0xF81F; }},
      {"noise", [&](int x, int y) { return static_cast<int>(random(x, y) & 0xFFFF); }},
      {"grey noise", [&](int x, int y) { return random(x, y) % 2 == 0 ? 0 : 0xFFFF; }},
      {"faint noise", [&](int x, int y) { return 0x7BEF + static_cast<int>(random(x, y) & 0x0841); }},
      {"a gradient", [](int x, int y) { return x / 4 << 11 | (x + y) / 4 << 5 | y / 4; }},
      {"a white pixel", [](int x, int y) { return x == 60 && y == 40 ? 0xFFFF : 0; }},
  };
  for (const auto& [name, pixel] : contents) {
    SCOPED_TRACE(name);
    ExpectRightCoefficients(Draw(width, height, pixel), width, height);
  }
}

TEST(JpegDecoding, RoundsACameraPictureNearlyExactly) {
  const Rounding rounding =
      CompareCoefficients(Encode(CameraScene(320, 240), 320, 240), CameraScene(320, 240), 320, 240);
  EXPECT_LT(rounding.squares, rounding.least * 1.005);
}

// Each block has full contrast and the signs of one of the 64 frequencies. Then the coefficient of this
// frequency has its largest value. Nothing may overflow on the way to it.
TEST(JpegDecoding, HasTheRightCoefficientsForEveryFrequencyAtFullContrast) {
  const auto isCrest = [](int frequency, int sample) {
    return std::cos((2 * sample + 1) * frequency * std::numbers::pi / 16) > 0;
  };
  for (const auto& [crest, trough, size] : {std::tuple{0xFFFF, 0x0000, 1},
                                            {0x0000, 0xFFFF, 1},
                                            {0x001F, 0xFFE0, 2},
                                            {0xFFE0, 0x001F, 2},
                                            {0xF800, 0x07FF, 2},
                                            {0x07FF, 0xF800, 2}}) {
    for (int frequency = 0; frequency < 64; ++frequency) {
      SCOPED_TRACE(testing::Message() << std::hex << crest << " frequency " << frequency);
      const auto frame = Draw(16, 16, [&, crest = crest, trough = trough, size = size](int x, int y) {
        return isCrest(frequency % 8, x / size % 8) == isCrest(frequency / 8, y / size % 8) ? crest : trough;
      });
      ExpectRightCoefficients(frame, 16, 16);
    }
  }
}

// No worse by 0.05 dB, no larger by 1 %.
void ExpectAsGoodAsPeer(const std::vector<uint16_t>& frame, int width, int height) {
  const auto picture = Encode(frame, width, height);
  ASSERT_FALSE(picture.empty());
  const auto peer = PeerEncode(frame, width, height, Decode(picture, JCS_RGB).steps);
  const Errors errors = Measure(picture, frame);
  const Errors peerErrors = Measure(peer, frame);
  const double tolerance = std::pow(10, 0.05 / 10);
  EXPECT_LE(errors.luma, peerErrors.luma * tolerance);
  EXPECT_LE(errors.rgb, peerErrors.rgb * tolerance);
  EXPECT_LE(static_cast<double>(picture.size()), 1.01 * static_cast<double>(peer.size()));
}

TEST(JpegDecoding, IsAsGoodAsThePeerOnLargePictures) {
  ExpectAsGoodAsPeer(CameraScene(1200, 1600, 1), 1200, 1600);
  ExpectAsGoodAsPeer(CameraScene(1203, 805, 7), 1203, 805);
  ExpectAsGoodAsPeer(Draw(640, 480, [](int x, int y) { return x / 20 << 11 | (x + y) / 18 << 5 | y / 15; }),
                     640, 480);
}

}  // namespace
