// Quantization tables, and the transform and quantization of a pair of blocks.
#pragma once

#include "imaging/sample_pair.h"

// The quality on the usual scale of 1 to 100 of the Independent JPEG Group.
//
// 90: the pictures are judged for blemishes and sharpness, and at 90 the encoder adds less error to luma than
// the camera's 5 and 6 bits a colour already carry, while a 1200 x 1600 picture stays near 300 KB on its way
// through the serial port. Chroma is halved both ways (4:2:0), as the sensor's own colour filter does.
constexpr int32_t QUALITY = 90;

constexpr int DIVISOR_BITS = 19;

struct Quantizer {
  uint8_t steps[64];         // by rows, as in T.81, annex K
  int16_t reciprocals[64];   // by columns: 2^DIVISOR_BITS / (step * what the transform leaves too large)
  int32_t constantRounding;  // the constant coefficient's rounding term, with the level shift
  int32_t negligible[8];     // a column of half-transformed samples with no greater energy has only zeros
};

extern const Quantizer LUMA_QUANTIZER;
extern const Quantizer CHROMA_QUANTIZER;

// A block's coefficients in coding order. Only those that the flags name are there; the constant one, the
// first, always is, and has no flag.
struct QuantizedBlock {
  int32_t coefficients[64];
  uint32_t nonZero[2];  // positions 0 to 31 and 32 to 63, the first in the uppermost bit
};

// Transforms the blocks' samples, in place, and quantizes them.
void TransformAndQuantize(SamplePair* samples, const Quantizer& quantizer, QuantizedBlock* low,
                          QuantizedBlock* high);
