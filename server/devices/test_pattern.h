// The display test's pictures.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Draws a pattern, or fills the frame with a colour and draws a border of one pixel (RGB565, the arguments'
// low 16 bits).
void DrawTestPattern(uint16_t* frame, int32_t fill, int32_t border);
