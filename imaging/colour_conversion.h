// From the camera's RGB565 pixels to the JPEG blocks' luma and chroma samples, 16 x 16 pixels at a time.
#pragma once

#include "imaging/sample_pair.h"

// A macroblock's samples, in half levels (0 to 511) and without level shift, as pairs of 8 x 8 blocks.
struct MacroblockSamples {
  SamplePair lumaTop[64];     // low: the left block, high: the right one
  SamplePair lumaBottom[64];  // likewise
  SamplePair chroma[64];      // low: Cb, high: Cr, each the mean of 2 x 2 pixels
};

// `pixels`: 16 rows of 16 pixels, `bytesPerRow` apart, at any address.
void ConvertMacroblock(const uint8_t* pixels, int32_t bytesPerRow, MacroblockSamples* samples);

// What the conversion's cutting off of bits takes from a sample on average, in 64ths of a half level.
constexpr int32_t LUMA_CUT = 16;
constexpr int32_t CHROMA_CUT = 24;
