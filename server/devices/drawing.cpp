#include "server/devices/drawing.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

constexpr int32_t DOT_SIZE = 4;

void DrawDot(uint16_t* frame, int32_t x, int32_t y, uint16_t colour) {
  if (x < 1 || x > DISPLAY_WIDTH - 2 || y < 1 || y > DISPLAY_HEIGHT - 2) return;
  auto* bytes = reinterpret_cast<uint8_t*>(frame);
  for (int32_t row = y; row < y + DOT_SIZE; ++row) {
    const auto start = static_cast<uint32_t>((row * DISPLAY_WIDTH + x) * 2);
    if (start >= FRAME_BYTES) return;
    // Filled by bytes, on purpose: the touchscreen test draws only in black and white, where both bytes are
    // equal. Any other colour comes out changed.
    memset(bytes + start, colour & 0xFF, std::min<uint32_t>(DOT_SIZE * 2, FRAME_BYTES - start));
  }
}

void DrawLine(uint16_t* frame, int32_t x0, int32_t y0, int32_t x1, int32_t y1, uint16_t colour) {
  const int32_t dx = abs(x1 - x0);
  const int32_t dy = abs(y1 - y0);
  const int32_t step_x = x1 > x0 ? 1 : -1;
  const int32_t step_y = y1 > y0 ? 1 : -1;
  const int32_t steps = std::max(dx, dy);
  int32_t x = x0, y = y0;
  int32_t error_x = 0, error_y = 0;
  // "Greater than", not "at least", on purpose: the sums pass `steps` one dot late, so the first point is
  // drawn twice and the last of the steps + 2 dots is the end point. Pictures of the crosses are compared
  // pixel by pixel.
  for (int32_t dot = 0; dot < steps + 2; ++dot) {
    DrawDot(frame, x, y, colour);
    error_x += dx;
    if (error_x > steps) {
      x += step_x;
      error_x -= steps;
    }
    error_y += dy;
    if (error_y > steps) {
      y += step_y;
      error_y -= steps;
    }
  }
}

// A row of the picture is made once and copied: the frame may be uncached memory, so it is only written, and
// in long runs.
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
