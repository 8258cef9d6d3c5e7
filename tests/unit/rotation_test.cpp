// Rotation against its rule, pixel by pixel, for sizes that no tile divides and frames that no word aligns.
#include "server/camera/frame_pixels.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

constexpr uint16_t GUARD = 0x5A5A;

struct Size {
  uint32_t width, height;
};

// The frame's pixel at a row and a column; neighbours differ in both bytes.
uint16_t PixelAt(uint32_t row, uint32_t column) {
  return static_cast<uint16_t>(row * 40503 + column * 257 + 1);
}

uint16_t Expected(const Size& in, int32_t degrees, uint32_t row, uint32_t column) {
  if (degrees == 90) return PixelAt(in.height - 1 - column, row);
  if (degrees == 270) return PixelAt(column, in.width - 1 - row);
  return PixelAt(in.height - 1 - row, in.width - 1 - column);
}

// `shift` moves both frames by so many pixels from the start of their (well aligned) memory.
void ExpectRotated(const Size& size, int32_t degrees, uint32_t in_shift, uint32_t out_shift) {
  const auto [width, height] = size;
  std::vector<uint16_t> in(in_shift + width * height, GUARD);
  std::vector<uint16_t> out(out_shift + width * height + 16, GUARD);
  for (uint32_t row = 0; row < height; ++row) {
    for (uint32_t column = 0; column < width; ++column)
      in[in_shift + row * width + column] = PixelAt(row, column);
  }
  RotateFrame(in.data() + in_shift, width, height, degrees, out.data() + out_shift);
  const uint32_t out_width = degrees == 180 ? width : height;
  for (uint32_t i = 0; i < width * height; ++i) {
    ASSERT_EQ(out[out_shift + i], Expected(size, degrees, i / out_width, i % out_width))
        << width << "x" << height << " by " << degrees << ", pixel " << i;
  }
  for (uint32_t i = 0; i < out_shift; ++i) ASSERT_EQ(out[i], GUARD) << "written before the frame";
  for (uint32_t i = 0; i < 16; ++i)
    ASSERT_EQ(out[out_shift + width * height + i], GUARD) << "written after its end";
}

TEST(RotateFrame, FollowsTheRule) {
  const Size sizes[] = {{1, 1},     {1, 7},   {7, 1},   {1, 100},   {100, 1},  {2, 2},
                        {3, 5},     {4, 4},   {8, 8},   {7, 9},     {9, 7},    {16, 32},
                        {31, 33},   {33, 31}, {32, 64}, {65, 17},   {100, 75}, {127, 129},
                        {240, 320}, {200, 3}, {3, 200}, {1024, 40}, {1200, 35}};
  for (const Size& size : sizes) {
    for (const int32_t degrees : {90, 180, 270}) {
      for (const uint32_t shifts : {0U, 1U, 2U, 3U}) ExpectRotated(size, degrees, shifts & 1, shifts >> 1);
    }
  }
}

TEST(RotateFrame, EmptyFrameWritesNothing) {
  for (const int32_t degrees : {90, 180, 270}) {
    ExpectRotated({0, 5}, degrees, 0, 0);
    ExpectRotated({5, 0}, degrees, 0, 0);
  }
}

TEST(IsRotation, ComparesTheNumberItself) {
  for (const int32_t degrees : {90, 180, 270}) EXPECT_TRUE(IsRotation(degrees));
  for (const int32_t degrees : {0, 45, 360, 450, -90, 1}) EXPECT_FALSE(IsRotation(degrees)) << degrees;
}

}  // namespace
