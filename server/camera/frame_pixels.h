// Work on the pixels of a captured frame: rotation by quarter turns, and the check of a sensor test pattern.
#pragma once

#include <cstdint>

// Whether a rotation is 90, 180 or 270 degrees clockwise. Every other number means no rotation.
bool IsRotation(int32_t degrees);

// Writes the frame `in` (width x height pixels of 16 bits, dense) rotated into `out`. A quarter turn makes
// the output height x width. The buffers must not overlap.
void RotateFrame(const uint16_t* in, uint32_t width, uint32_t height, int32_t degrees, uint16_t* out);

// Whether all of `count` pixels have a colour. The count must be a multiple of 8, and the frame must be
// aligned to 8 bytes, as allocated memory is.
bool IsUniform(const uint16_t* frame, uint32_t count, uint16_t colour);
