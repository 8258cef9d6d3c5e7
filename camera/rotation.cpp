#include "camera/rotation.h"

#include <algorithm>
#include <cstddef>

bool IsRotation(int32_t degrees) {
  return degrees == 90 || degrees == 180 || degrees == 270;
}

// Copies columns of `in` into rows of `out`, with an input pixel `column_step` pixels from the one before it
// in the row and an input row `row_step` from the one above it. Works in square tiles, so that both the
// columns read and the rows written stay in the cache.
static void Transpose(const uint16_t* in, ptrdiff_t row_step, ptrdiff_t column_step, uint32_t rows,
                      uint32_t columns, uint16_t* out) {
  constexpr uint32_t TILE = 32;
  for (uint32_t top = 0; top < rows; top += TILE) {
    const uint32_t bottom = std::min(top + TILE, rows);
    for (uint32_t left = 0; left < columns; left += TILE) {
      const uint32_t right = std::min(left + TILE, columns);
      for (uint32_t column = left; column < right; ++column) {
        const uint16_t* pixel =
            in + static_cast<ptrdiff_t>(top) * row_step + static_cast<ptrdiff_t>(column) * column_step;
        uint16_t* target = out + static_cast<size_t>(column) * rows + top;
        for (uint32_t row = top; row < bottom; ++row, pixel += row_step) *target++ = *pixel;
      }
    }
  }
}

void RotateFrame(const uint16_t* in, uint32_t width, uint32_t height, int32_t degrees, uint16_t* out) {
  const size_t pixels = static_cast<size_t>(width) * height;
  if (pixels == 0) return;
  const auto row_step = static_cast<ptrdiff_t>(width);
  if (degrees == 180) {
    std::reverse_copy(in, in + pixels, out);
  } else if (degrees == 90) {
    // Output rows are input columns from the bottom up.
    Transpose(in + (pixels - width), -row_step, 1, height, width, out);
  } else {
    // Output rows are input columns from the right.
    Transpose(in + (width - 1), row_step, -1, height, width, out);
  }
}
