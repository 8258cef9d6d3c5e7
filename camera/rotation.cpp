#include "camera/rotation.h"

#include <algorithm>
#include <cstddef>

bool IsRotation(int32_t degrees) {
  return degrees == 90 || degrees == 180 || degrees == 270;
}

// Four pixels in one store; the phone's processor does it as two words.
using FourPixels [[gnu::may_alias, gnu::aligned(alignof(uint32_t))]] = uint64_t;

static uint32_t PixelPair(const uint16_t* pixel, ptrdiff_t step) {
  return static_cast<uint32_t>(pixel[0]) | static_cast<uint32_t>(pixel[step]) << 16;
}

// Copies `count` pixels that lie `step` pixels apart to `out`, one behind the other. Several are written at
// once, since the phone's cache takes no line in for a write: each goes to memory by itself.
static void Gather(const uint16_t* pixel, ptrdiff_t step, size_t count, uint16_t* out) {
  if (count > 0 && reinterpret_cast<uintptr_t>(out) % alignof(FourPixels) != 0) {
    *out++ = *pixel;
    pixel += step;
    --count;
  }
  for (; count >= 4; count -= 4, pixel += 4 * step, out += 4) {
    const uint64_t upper_pair = PixelPair(pixel + 2 * step, step);
    *reinterpret_cast<FourPixels*>(out) = PixelPair(pixel, step) | upper_pair << 32;
  }
  for (; count > 0; --count, pixel += step) *out++ = *pixel;
}

// Makes the columns of `in` the rows of `out`, where an input pixel lies `column_step` pixels from the one
// before it in its row and an input row `row_step` from the one above it. Goes through the input in bands of
// a few rows: the next columns' pixels are in the lines that the cache has taken in for one column.
static void Transpose(const uint16_t* in, ptrdiff_t row_step, ptrdiff_t column_step, uint32_t rows,
                      uint32_t columns, uint16_t* out) {
  constexpr uint32_t BAND = 64;
  for (uint32_t top = 0; top < rows; top += BAND) {
    const uint16_t* pixel = in + static_cast<ptrdiff_t>(top) * row_step;
    for (uint32_t column = 0; column < columns; ++column, pixel += column_step) {
      Gather(pixel, row_step, std::min(BAND, rows - top), out + static_cast<size_t>(column) * rows + top);
    }
  }
}

void RotateFrame(const uint16_t* in, uint32_t width, uint32_t height, int32_t degrees, uint16_t* out) {
  const size_t pixels = static_cast<size_t>(width) * height;
  if (pixels == 0) return;
  const auto row_step = static_cast<ptrdiff_t>(width);
  if (degrees == 180) {
    Gather(in + (pixels - 1), -1, pixels, out);
  } else if (degrees == 90) {
    // Output rows are input columns from the bottom up.
    Transpose(in + (pixels - width), -row_step, 1, height, width, out);
  } else {
    // Output rows are input columns from the right.
    Transpose(in + (width - 1), row_step, -1, height, width, out);
  }
}
