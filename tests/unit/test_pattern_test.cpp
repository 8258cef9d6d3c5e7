// The display test's pictures, pixel by pixel against what each pixel should be.
#include "server/devices/drawing.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace {

constexpr uint16_t UNTOUCHED = 0x5A5A;

void ExpectPicture(int32_t fill, int32_t border, const std::function<unsigned(int x, int y)>& expected) {
  std::vector<uint16_t> frame(FRAME_BYTES / 2 + 240, UNTOUCHED);
  DrawTestPattern(frame.data(), fill, border);
  for (int y = 0; y < 320; ++y) {
    for (int x = 0; x < 240; ++x) {
      ASSERT_EQ(frame[static_cast<size_t>(y * 240 + x)], expected(x, y))
          << std::hex << fill << ", " << border << std::dec << " at " << x << "," << y;
    }
  }
  for (size_t i = FRAME_BYTES / 2; i < frame.size(); ++i) ASSERT_EQ(frame[i], UNTOUCHED);
}

TEST(TestPattern, StripesAndBars) {
  ExpectPicture(0x1111, 0x1111, [](int, int y) { return y / 16 % 2 == 0 ? 0x0000U : 0xFFFFU; });
  ExpectPicture(0x2222, 0x2222, [](int x, int) { return x / 12 % 2 == 0 ? 0x0000U : 0xFFFFU; });
  ExpectPicture(0x3333, 0x3333, [](int x, int) { return x < 80 ? 0xF800U : x < 160 ? 0x07E0U : 0x001FU; });
}

TEST(TestPattern, AnotherBorderThanThePatternsDrawsNothing) {
  for (const int32_t pattern : {0x1111, 0x2222, 0x3333}) {
    ExpectPicture(pattern, 0, [](int, int) { return unsigned{UNTOUCHED}; });
    ExpectPicture(pattern, pattern | 0x10000, [](int, int) { return unsigned{UNTOUCHED}; });
  }
}

TEST(TestPattern, SolidColourWithABorderOfOnePixel) {
  const auto with_border = [](unsigned fill, unsigned border) {
    return [=](int x, int y) { return x == 0 || x == 239 || y == 0 || y == 319 ? border : fill; };
  };
  ExpectPicture(0x1234, 0xFFFF, with_border(0x1234, 0xFFFF));
  ExpectPicture(0, 0, with_border(0, 0));
  ExpectPicture(-1, 0x7FFF0001, with_border(0xFFFF, 0x0001));
  ExpectPicture(0x10000 + 0x1111, 0x1111, with_border(0x1111, 0x1111));  // not the pattern's number
}

}  // namespace
