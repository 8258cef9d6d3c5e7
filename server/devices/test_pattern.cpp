#include "server/devices/test_pattern.h"

#include <algorithm>
#include <cstring>

#include "server/devices/drawing.h"

// A row of the picture is made once and copied: the frame may be memory that no cache holds, so it is only
// written, and in long runs.
struct PixelRow {
  uint16_t pixels[DISPLAY_WIDTH];
};

static void PutRows(uint16_t* frame, int32_t first, int32_t count, const PixelRow& row) {
  for (int32_t y = first; y < first + count; ++y) memcpy(frame + y * DISPLAY_WIDTH, &row, sizeof row);
}

static PixelRow UniformRow(uint16_t colour) {
  PixelRow row;
  std::fill_n(row.pixels, DISPLAY_WIDTH, colour);
  return row;
}

static void DrawHorizontalStripes(uint16_t* frame) {
  constexpr int32_t BAND_ROWS = 16;
  const PixelRow black = UniformRow(BLACK), white = UniformRow(WHITE);
  for (int32_t y = 0; y < DISPLAY_HEIGHT; y += 2 * BAND_ROWS) {
    PutRows(frame, y, BAND_ROWS, black);
    PutRows(frame, y + BAND_ROWS, BAND_ROWS, white);
  }
}

static void DrawVerticalStripes(uint16_t* frame) {
  constexpr int32_t BAND_COLUMNS = 12;
  PixelRow row;
  for (int32_t x = 0; x < DISPLAY_WIDTH; ++x) row.pixels[x] = x / BAND_COLUMNS % 2 == 0 ? BLACK : WHITE;
  PutRows(frame, 0, DISPLAY_HEIGHT, row);
}

static void DrawColourBars(uint16_t* frame) {
  constexpr int32_t BAR_COLUMNS = DISPLAY_WIDTH / 3;
  PixelRow row;
  std::fill_n(row.pixels, BAR_COLUMNS, RED);
  std::fill_n(row.pixels + BAR_COLUMNS, BAR_COLUMNS, GREEN);
  std::fill_n(row.pixels + 2 * BAR_COLUMNS, BAR_COLUMNS, BLUE);
  PutRows(frame, 0, DISPLAY_HEIGHT, row);
}

static void DrawSolid(uint16_t* frame, uint16_t fill, uint16_t border) {
  const PixelRow edge = UniformRow(border);
  PixelRow inner = UniformRow(fill);
  inner.pixels[0] = border;
  inner.pixels[DISPLAY_WIDTH - 1] = border;
  PutRows(frame, 0, 1, edge);
  PutRows(frame, 1, DISPLAY_HEIGHT - 2, inner);
  PutRows(frame, DISPLAY_HEIGHT - 1, 1, edge);
}

void DrawTestPattern(uint16_t* frame, int32_t fill, int32_t border) {
  switch (fill) {
    case PATTERN_HORIZONTAL_STRIPES:
      if (border == fill) DrawHorizontalStripes(frame);
      break;
    case PATTERN_VERTICAL_STRIPES:
      if (border == fill) DrawVerticalStripes(frame);
      break;
    case PATTERN_COLOUR_BARS:
      if (border == fill) DrawColourBars(frame);
      break;
    default:
      DrawSolid(frame, static_cast<uint16_t>(fill), static_cast<uint16_t>(border));
  }
}
