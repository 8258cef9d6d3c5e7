// Two 8 x 8 blocks of a picture on their way from samples to coefficients.
#pragma once

#include "server/imaging/sample_pair.h"

// A block's quantized coefficients in coding order. Only those that the flags name are there; the constant
// one, the first, always is, and has no flag.
struct QuantizedBlock {
  int32_t coefficients[64];
  uint32_t nonZero[2];  // positions 0 to 31 and 32 to 63, the first in the uppermost bit
};

struct BlockPair {
  SamplePair samples[64];  // by rows
  QuantizedBlock low;
  QuantizedBlock high;
};
