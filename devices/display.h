// The display test: patterns and solid fills on the LCD, and the backlight's level.
#pragma once

#include <cstdint>

#include "devices/drawing.h"

// In place of a fill colour; drawn only when the border says the same, else nothing is drawn.
constexpr int32_t PATTERN_HORIZONTAL_STRIPES = 0x1111;  // 20 bands of 16 rows, black first
constexpr int32_t PATTERN_VERTICAL_STRIPES = 0x2222;    // 20 bands of 12 columns, black first
constexpr int32_t PATTERN_COLOUR_BARS = 0x3333;         // 80 columns each of red, green and blue

// Fills the LCD with a pattern, or with a colour and a border of one pixel (RGB565, the arguments' low 16
// bits), and sets the backlight's level. Gives 0; -9991 when the framebuffer cannot be opened, -9988 when it
// cannot be mapped, and the backlight stays then.
int32_t DisplayTest(int32_t fill, int32_t border, int32_t backlight);

// Maps the LCD's frame of an opened framebuffer, shared, to read and write; null on failure.
uint16_t* MapFrame(int framebuffer);
void UnmapFrame(uint16_t* frame);

constexpr char FRAMEBUFFER[] = "/dev/fb/0";
