// The quantization tables of the two kinds of components, as the file states them and as the quantizer uses
// them.
#pragma once

#include "server/imaging/sample_pair.h"

// The quality, on the usual scale of 1 to 100.
//
// The pictures are judged for blemishes and sharpness. At 90 the steps of all low frequencies are 2 to 5
// levels, less than a step of the frame's own red and blue (8 levels), so a blemish that a frame can hold
// stays in the picture; and a picture of 1200 x 1600 pixels stays near 300 KB on its way through the serial
// port. Chroma is halved both ways (4:2:0), as the sensor's colour filter has one red and one blue site among
// four.
constexpr int QUALITY = 90;

// Dividing is multiplying by 2^RECIPROCAL_BITS / (step * what the transforms leave too large). The largest
// reciprocal just fits in 16 bits with its sign.
constexpr int RECIPROCAL_BITS = 19;

// What a column of coefficients is quantized with, row by row. Of a pair, the lower half or index 0 is for
// the low block.
struct ColumnTable {
  SamplePair reciprocals[8];
  uint8_t positions[8];  // in coding order
  int32_t rounding[2];   // what the first row's quotients begin with: half a unit, and the level shift
  int32_t
      negligible[2];  // half-transformed samples of no greater energy come to nothing; below 0: do not ask
};

struct QuantizationTable {
  ColumnTable columns[8];
  uint8_t steps[64];  // by rows, as in T.81, annex K
};

extern const QuantizationTable LUMA_TABLE;
extern const QuantizationTable CHROMA_TABLE;
