// The check of a sensor test pattern.
#pragma once

#include <cstdint>

// Whether all of `count` pixels are of a colour. The count is a multiple of 8, the frame aligned to 4 bytes.
bool IsUniform(const uint16_t* frame, uint32_t count, uint16_t colour);
