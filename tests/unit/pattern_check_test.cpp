#include "server/camera/frame_pixels.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(IsUniform, OneWrongPixelAnywhereIsSeen) {
  constexpr uint32_t COUNT = 240 * 320;
  for (const uint16_t colour : {uint16_t{0xFFFF}, uint16_t{0}}) {
    std::vector<uint16_t> frame(COUNT, colour);
    EXPECT_TRUE(IsUniform(frame.data(), COUNT, colour));
    EXPECT_FALSE(IsUniform(frame.data(), COUNT, static_cast<uint16_t>(~colour)));
    for (const uint32_t wrong : {0U, 1U, 2U, 239U, 38401U, COUNT - 2, COUNT - 1}) {
      for (const uint16_t bit : {uint16_t{1}, uint16_t{0x8000}}) {
        frame[wrong] ^= bit;
        EXPECT_FALSE(IsUniform(frame.data(), COUNT, colour)) << "pixel " << wrong;
        frame[wrong] ^= bit;
      }
    }
  }
}

}  // namespace
