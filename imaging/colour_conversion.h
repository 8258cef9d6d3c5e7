// From the camera's RGB565 pixels to the JPEG blocks' luma and chroma samples.
#pragma once

#include "imaging/sample_pair.h"

// Converts eight rows of 16 pixels, `bytesPerRow` apart, at any address.
//
// `luma`: 64 pairs of samples, the left block's in the low and the right block's in the high halves, in half
// levels, 0 to 511, without level shift.
// `chroma`: 32 pairs, four rows of a block, each the mean of 2 x 2 pixels: B - Y low and R - Y high, in
// levels, -226 to 226 and -179 to 179. That Cb is (B - Y) / 1.772 and Cr is (R - Y) / 1.402 is left to the
// quantizer's divisors.
void ConvertRows(const uint8_t* pixels, int32_t bytesPerRow, SamplePair* luma, SamplePair* chroma);

// What cutting off fractions has taken from a sample on average, in 64ths of its unit: a quarter of a half
// level; 3/8 of a level, less the 3/32 by which the luma that was subtracted had been cut.
constexpr int32_t LUMA_CUT = 16;
constexpr int32_t CHROMA_CUT = 18;
