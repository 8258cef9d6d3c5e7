// Rotation of a captured frame by quarter turns.
#pragma once

#include <cstdint>

// Whether a rotation is one of 90, 180 and 270 degrees clockwise; every other number means none.
bool IsRotation(int32_t degrees);

// Writes the frame `in` (width x height pixels of 16 bits, dense) rotated into `out`. A quarter turn makes
// the output height x width. The buffers must not overlap.
void RotateFrame(const uint16_t* in, uint32_t width, uint32_t height, int32_t degrees, uint16_t* out);
