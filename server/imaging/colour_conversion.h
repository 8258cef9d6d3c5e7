// From the camera's RGB565 pixels to the JPEG blocks' luma and chroma samples.
#pragma once

#include "server/imaging/sample_pair.h"

// Samples are as fine as the transform's 16 bits allow (forward_dct.h), luma in 8/25 of a level.
constexpr int32_t LUMA_PER_LEVEL_NUMERATOR = 25;
constexpr int32_t LUMA_PER_LEVEL_DENOMINATOR = 8;

// Chroma is B - Y and R - Y, in CHROMA_ONE / 2^CHROMA_BITS of a level. The quantizer's divisors make Cb = (B
// - Y) / 1.772 and Cr = (R - Y) / 1.402 of them.
constexpr int CHROMA_BITS = 14;
constexpr int32_t CHROMA_ONE = 29400;

// Converts eight rows of 16 pixels, `bytesPerRow` apart, at any address.
//
// `luma`: 64 pairs of samples, the left block's in the low and the right block's in the high halves.
// `chroma`: 32 pairs, four rows of a block, each the mean of 2 x 2 pixels: B - Y low and R - Y high.
// All samples are signed, as T.81 requires.
void ConvertRows(const uint8_t* pixels, int32_t bytesPerRow, SamplePair* luma, SamplePair* chroma);
