// The transform and quantization of a pair of blocks, and the tables of the two kinds of components.
#pragma once

#include "server/imaging/sample_pair.h"

// ITU-T T.81, figure A.6: the position in coding order of the coefficient with vertical frequency i / 8 and
// horizontal frequency i % 8.
constexpr uint8_t ZIGZAG_POSITION[64] = {
    0,  1,  5,  6,  14, 15, 27, 28,  //
    2,  4,  7,  13, 16, 26, 29, 42,  //
    3,  8,  12, 17, 25, 30, 41, 43,  //
    9,  11, 18, 24, 31, 40, 44, 53,  //
    10, 19, 23, 32, 39, 45, 52, 54,  //
    20, 22, 33, 38, 46, 51, 55, 60,  //
    21, 34, 37, 47, 50, 56, 59, 61,  //
    35, 36, 48, 49, 57, 58, 62, 63,
};

// The quality, on the usual scale of 1 to 100.
//
// The pictures are judged for blemishes and sharpness. At 90 the steps of all low frequencies are 2 to 5
// levels, less than a step of the frame's own red and blue (8 levels), so a blemish that a frame can hold
// stays in the picture; and a picture of 1200 x 1600 pixels stays near 300 KB on its way through the serial
// port. Chroma is halved both ways (4:2:0), as the sensor's colour filter has one red and one blue site among
// four.
constexpr int QUALITY = 90;

// A division is a multiplication by 2^RECIPROCAL_BITS / (step * the factor that the transforms leave). The
// largest reciprocal just fits in 16 bits with its sign.
constexpr int RECIPROCAL_BITS = 19;

// How a column of coefficients is quantized, row by row. In each pair the lower half, or index 0, is for the
// low block.
struct ColumnTable {
  SamplePair reciprocals[8];
  uint8_t positions[8];  // in coding order
  int32_t rounding[2];   // what the first row's quotients begin with: half a unit, and the level shift
  // Half-transformed samples of no greater energy become all zeros. Negative: not worth the test.
  int32_t negligible[2];
};

struct QuantizationTable {
  ColumnTable columns[8];
  uint8_t steps[64];  // by rows, as in T.81, annex K
};

extern const QuantizationTable LUMA_TABLE;
extern const QuantizationTable CHROMA_TABLE;

// Transforms the pair's samples, in place, and quantizes them.
void TransformAndQuantize(BlockPair* pair, const QuantizationTable& table);
