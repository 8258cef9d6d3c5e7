// The display test: patterns and solid fills on the LCD, and the backlight's level.
#pragma once

#include <cstdint>

#include "server/devices/drawing.h"

// Draws the test pattern of a fill and a border on the LCD and sets the backlight's level. Returns 0, also if
// the backlight cannot be set. Returns -9991 if the framebuffer cannot be opened and -9988 if it cannot be
// mapped; the backlight is not touched then.
int32_t DisplayTest(int32_t fill, int32_t border, int32_t backlight);

// Maps the frame of an opened framebuffer, shared, to read and write. Returns null on failure.
uint16_t* MapFrame(int framebuffer);
void UnmapFrame(uint16_t* frame);

constexpr char FRAMEBUFFER[] = "/dev/fb/0";
