// The display test: patterns and solid fills on the LCD, and the backlight's level.
#pragma once

#include <cstdint>

#include "server/devices/drawing.h"

// Draws the test pattern of a fill and a border on the LCD and sets the backlight's level. Gives 0; -9991
// when the framebuffer cannot be opened, -9988 when it cannot be mapped, and the backlight stays then.
int32_t DisplayTest(int32_t fill, int32_t border, int32_t backlight);

// Maps the LCD's frame of an opened framebuffer, shared, to read and write; null on failure.
uint16_t* MapFrame(int framebuffer);
void UnmapFrame(uint16_t* frame);

constexpr char FRAMEBUFFER[] = "/dev/fb/0";
