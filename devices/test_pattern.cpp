#include "devices/test_pattern.h"

#include <algorithm>
#include <cstring>

#include "devices/drawing.h"

static uint16_t* Row(uint16_t* frame, int32_t row) {
  return frame + row * DISPLAY_WIDTH;
}

// Makes every row a copy of the first.
static void RepeatFirstRow(uint16_t* frame) {
  for (int32_t row = 1; row < DISPLAY_HEIGHT; ++row) memcpy(Row(frame, row), frame, DISPLAY_WIDTH * 2);
}

static void DrawHorizontalStripes(uint16_t* frame) {
  constexpr int32_t BAND_ROWS = 16;
  for (int32_t row = 0; row < DISPLAY_HEIGHT; ++row) {
    std::fill_n(Row(frame, row), DISPLAY_WIDTH, row / BAND_ROWS % 2 == 0 ? BLACK : WHITE);
  }
}

static void DrawVerticalStripes(uint16_t* frame) {
  constexpr int32_t BAND_COLUMNS = 12;
  for (int32_t x = 0; x < DISPLAY_WIDTH; ++x) frame[x] = x / BAND_COLUMNS % 2 == 0 ? BLACK : WHITE;
  RepeatFirstRow(frame);
}

static void DrawColourBars(uint16_t* frame) {
  constexpr int32_t BAR_COLUMNS = DISPLAY_WIDTH / 3;
  std::fill_n(frame, BAR_COLUMNS, RED);
  std::fill_n(frame + BAR_COLUMNS, BAR_COLUMNS, GREEN);
  std::fill_n(frame + 2 * BAR_COLUMNS, BAR_COLUMNS, BLUE);
  RepeatFirstRow(frame);
}

static void DrawSolid(uint16_t* frame, uint16_t fill, uint16_t border) {
  std::fill_n(frame, DISPLAY_WIDTH, fill);
  RepeatFirstRow(frame);
  std::fill_n(frame, DISPLAY_WIDTH, border);
  std::fill_n(Row(frame, DISPLAY_HEIGHT - 1), DISPLAY_WIDTH, border);
  for (int32_t row = 0; row < DISPLAY_HEIGHT; ++row) {
    Row(frame, row)[0] = border;
    Row(frame, row)[DISPLAY_WIDTH - 1] = border;
  }
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
