#include "server/camera/frame_pixels.h"

#include <algorithm>
#include <cstddef>

bool IsRotation(int32_t degrees) {
  return degrees == 90 || degrees == 180 || degrees == 270;
}

// Four pixels in one access, which the phone's processor does as two words.
using FourPixels [[gnu::may_alias, gnu::aligned(alignof(uint32_t))]] = uint64_t;

static uint32_t PixelPair(const uint16_t* pixel, ptrdiff_t step) {
  return static_cast<uint32_t>(pixel[0]) | static_cast<uint32_t>(pixel[step]) << 16;
}

// Distances, in pixels, from one pixel to the next in the two frames.
struct Steps {
  ptrdiff_t row, column;  // from an input pixel to the one below it and the one to its right
  ptrdiff_t out_row;      // from an output pixel to the one below it
};

// Turns pieces of COLUMNS input columns, `count` pixels long, into pieces of as many output rows. Several
// pixels are written at once, since the phone's cache loads no line for a write: each write goes to memory by
// itself. So the output rows must have the same alignment.
template <ptrdiff_t COLUMNS>
static void TurnColumns(const uint16_t* in, Steps steps, size_t count, uint16_t* out) {
  const auto turn_one = [&] {
    for (ptrdiff_t i = 0; i < COLUMNS; ++i) out[i * steps.out_row] = in[i * steps.column];
    in += steps.row;
    ++out;
    --count;
  };
  if (count > 0 && reinterpret_cast<uintptr_t>(out) % alignof(FourPixels) != 0) turn_one();
  for (; count >= 4; count -= 4, in += 4 * steps.row, out += 4) {
#pragma GCC unroll 4
    for (ptrdiff_t i = 0; i < COLUMNS; ++i) {
      const uint16_t* pixel = in + i * steps.column;
      const uint64_t lower = PixelPair(pixel, steps.row);
      const uint64_t upper = PixelPair(pixel + 2 * steps.row, steps.row);
      *static_cast<FourPixels*>(static_cast<void*>(out + i * steps.out_row)) = lower | upper << 32;
    }
  }
  while (count > 0) turn_one();
}

// Turns the columns of `in` into the rows of `out`. It works through the input in bands of a few rows: the
// cache then still holds the lines with the next columns' pixels.
static void Transpose(const uint16_t* in, Steps steps, uint32_t rows, uint32_t columns, uint16_t* out) {
  constexpr uint32_t BAND = 64;
  const auto all_columns = static_cast<ptrdiff_t>(columns);
  // Rows of an odd length differ in alignment.
  const ptrdiff_t columns_by_four = rows % 2 == 0 ? all_columns / 4 * 4 : 0;
  for (uint32_t top = 0; top < rows; top += BAND) {
    const uint32_t count = std::min(BAND, rows - top);
    const uint16_t* band = in + static_cast<ptrdiff_t>(top) * steps.row;
    ptrdiff_t column = 0;
    for (; column < columns_by_four; column += 4)
      TurnColumns<4>(band + column * steps.column, steps, count, out + column * steps.out_row + top);
    for (; column < all_columns; ++column)
      TurnColumns<1>(band + column * steps.column, steps, count, out + column * steps.out_row + top);
  }
}

void RotateFrame(const uint16_t* in, uint32_t width, uint32_t height, int32_t degrees, uint16_t* out) {
  const size_t pixels = static_cast<size_t>(width) * height;
  if (pixels == 0) return;
  const auto row = static_cast<ptrdiff_t>(width);
  const auto out_row = static_cast<ptrdiff_t>(height);
  if (degrees == 180) {
    TurnColumns<1>(in + (pixels - 1), {-1, 0, 0}, pixels, out);
  } else if (degrees == 90) {
    // Output rows are input columns from the bottom up.
    Transpose(in + (pixels - width), {-row, 1, out_row}, height, width, out);
  } else {
    // Output rows are input columns from the right.
    Transpose(in + (width - 1), {row, -1, out_row}, height, width, out);
  }
}

bool IsUniform(const uint16_t* frame, uint32_t count, uint16_t colour) {
  // The phone's processor loads two aligned words with one instruction.
  using FourAlignedPixels [[gnu::may_alias]] = uint64_t;
  auto* pixels = static_cast<const FourAlignedPixels*>(static_cast<const void*>(frame));
  const uint64_t expected = colour * uint64_t{0x0001000100010001};
  uint64_t differences = 0;
  for (uint32_t i = 0; i < count / 4; i += 2) {
    differences |= (pixels[i] ^ expected) | (pixels[i + 1] ^ expected);
  }
  return differences == 0;
}
