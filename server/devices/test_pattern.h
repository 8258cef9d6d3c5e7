// The display test's pictures.
#pragma once

#include <cstdint>

// In place of a fill colour; drawn only when the border says the same, else nothing is drawn.
constexpr int32_t PATTERN_HORIZONTAL_STRIPES = 0x1111;  // 20 bands of 16 rows, black first
constexpr int32_t PATTERN_VERTICAL_STRIPES = 0x2222;    // 20 bands of 12 columns, black first
constexpr int32_t PATTERN_COLOUR_BARS = 0x3333;         // 80 columns each of red, green and blue

// Draws a pattern, or fills the frame with a colour and draws a border of one pixel (RGB565, the arguments'
// low 16 bits).
void DrawTestPattern(uint16_t* frame, int32_t fill, int32_t border);
