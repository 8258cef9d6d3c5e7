// The LCD's frame in memory: the display test's pictures, and the dots and lines of the touchscreen test.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// 240 x 320 pixels of RGB565, rows from top to bottom without padding.
constexpr int32_t DISPLAY_WIDTH = 240;
constexpr int32_t DISPLAY_HEIGHT = 320;
constexpr uint32_t FRAME_BYTES = DISPLAY_WIDTH * DISPLAY_HEIGHT * 2;

// Fills the frame with a colour and draws a border of one pixel (RGB565, the arguments' low 16 bits). If
// `fill` is a pattern code, draws the pattern if `border` is the same code, and otherwise nothing: hosts use
// this to set the backlight alone.
void DrawTestPattern(uint16_t* frame, int32_t fill, int32_t border);

// Paints a block of 4 x 4 pixels whose top-left pixel is (x, y), if 1 <= x <= 238 and 1 <= y <= 318;
// otherwise nothing. Both bytes of a pixel become the colour's low byte. A block over the right edge
// continues in the next row. What would fall past the frame's last byte is dropped.
void DrawDot(uint16_t* frame, int32_t x, int32_t y, uint16_t colour);

// Paints dots from (x0, y0) to (x1, y1). The number of dots is the longer distance plus 2: the first point is
// painted twice.
void DrawLine(uint16_t* frame, int32_t x0, int32_t y0, int32_t x1, int32_t y1, uint16_t colour);
