// The LCD's frame in memory, and the dots and lines of the touchscreen test.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// 240 x 320 pixels of RGB565, rows from top to bottom without padding.
constexpr int32_t DISPLAY_WIDTH = 240;
constexpr int32_t DISPLAY_HEIGHT = 320;
constexpr uint32_t FRAME_BYTES = DISPLAY_WIDTH * DISPLAY_HEIGHT * 2;

// Paints a 4 x 4 block whose top-left pixel is (x, y), where 1 <= x <= 238 and 1 <= y <= 318; elsewhere
// nothing. Both bytes of a pixel become the colour's low byte. A block over the right edge goes on in the
// next row; what would fall behind the frame's last byte is dropped.
void DrawDot(uint16_t* frame, int32_t x, int32_t y, uint16_t colour);

// Paints dots from (x0, y0) to (x1, y1), one more than the longer distance has steps: the first point comes
// twice.
void DrawLine(uint16_t* frame, int32_t x0, int32_t y0, int32_t x1, int32_t y1, uint16_t colour);
