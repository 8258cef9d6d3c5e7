#include "imaging/quantizer.h"

#include "imaging/colour_conversion.h"
#include "imaging/forward_dct.h"
#include "imaging/zigzag.h"

namespace {

// ITU-T T.81, tables K.1 and K.2.
constexpr uint8_t STANDARD_LUMA_STEPS[64] = {
    16, 11, 10, 16, 24,  40,  51,  61,   //
    12, 12, 14, 19, 26,  58,  60,  55,   //
    14, 13, 16, 24, 40,  57,  69,  56,   //
    14, 17, 22, 29, 51,  87,  80,  62,   //
    18, 22, 37, 56, 68,  109, 103, 77,   //
    24, 35, 55, 64, 81,  104, 113, 92,   //
    49, 64, 78, 87, 103, 121, 120, 101,  //
    72, 92, 95, 98, 112, 100, 103, 99,
};
constexpr uint8_t STANDARD_CHROMA_STEPS[64] = {
    17, 18, 24, 47, 99, 99, 99, 99,  //
    18, 21, 26, 66, 99, 99, 99, 99,  //
    24, 26, 56, 99, 99, 99, 99, 99,  //
    47, 66, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99,
};

// The samples' half levels double the coefficients; two transforms by sqrt(8) make them 8 times too large.
constexpr int64_t SAMPLE_SCALE = 16;

constexpr int32_t ROUNDING = 1 << (DIVISOR_BITS - 1);

// `cut`: what a sample is too small on average, in 64ths; the constant coefficient is the sum of 64 samples.
constexpr Quantizer MakeQuantizer(const uint8_t (&standard)[64], int32_t cut) {
  static_assert(QUALITY >= 50 && QUALITY <= 100);
  Quantizer quantizer{};
  for (int row = 0; row < 8; ++row) {
    for (int column = 0; column < 8; ++column) {
      int step = (standard[8 * row + column] * (200 - 2 * QUALITY) + 50) / 100;
      if (step < 1) step = 1;
      quantizer.steps[8 * row + column] = static_cast<uint8_t>(step);

      int64_t scale = DCT_SCALE[row] * DCT_SCALE[column] / 1000000000 * SAMPLE_SCALE * step;
      int64_t reciprocal = ((int64_t{1000000000} << DIVISOR_BITS) + scale / 2) / scale;
      quantizer.reciprocals[8 * column + row] = static_cast<int16_t>(reciprocal);
    }
  }
  constexpr int32_t levelShift = 64 * 256;
  quantizer.constantRounding = ROUNDING - quantizer.reciprocals[0] * (levelShift - cut);

  // The transform of a column keeps its energy, apart from the scale, so that no coefficient can be larger
  // than the root of it: with less than half the smallest step all of them round to zero.
  for (int column = 0; column < 8; ++column) {
    int64_t smallest = 255;
    for (int row = 0; row < 8; ++row) {
      int64_t step = quantizer.steps[8 * row + column];
      if (step < smallest) smallest = step;
    }
    int64_t scale = DCT_SCALE[column] / 1000;
    // (smallest / 2)^2 * (2 * sqrt(8) * scale)^2
    quantizer.negligible[column] =
        static_cast<int32_t>(8 * smallest * smallest * scale * scale / 1000000000000 - 1);
  }
  return quantizer;
}

static_assert(ZIGZAG_POSITION[63] == 63);

template <int position>
inline void Quantize(int32_t scaled, QuantizedBlock* block, uint32_t (&nonZero)[2]) {
  int32_t coefficient = scaled >> DIVISOR_BITS;
  if (coefficient != 0) {
    block->coefficients[position] = coefficient;
    nonZero[position / 32] |= 0x80000000U >> position % 32;
  }
}

template <int column, int row>
inline void QuantizePair(SamplePair pair, const Quantizer& quantizer, QuantizedBlock* low,
                         QuantizedBlock* high, uint32_t (&lowNonZero)[2], uint32_t (&highNonZero)[2]) {
  constexpr int position = ZIGZAG_POSITION[8 * row + column];
  int32_t reciprocal = quantizer.reciprocals[8 * column + row];
  if constexpr (position == 0) {
    low->coefficients[0] = AddLowProduct(quantizer.constantRounding, pair, reciprocal) >> DIVISOR_BITS;
    high->coefficients[0] = AddHighProduct(quantizer.constantRounding, pair, reciprocal) >> DIVISOR_BITS;
  } else {
    Quantize<position>(AddLowProduct(ROUNDING, pair, reciprocal), low, lowNonZero);
    Quantize<position>(AddHighProduct(ROUNDING, pair, reciprocal), high, highNonZero);
  }
}

inline bool IsNegligible(const SamplePair (&s)[8], int32_t limit) {
  int32_t low = 0;
  int32_t high = 0;
  for (SamplePair pair : s) {
    low = AddLowSquare(low, pair);
    high = AddHighSquare(high, pair);
  }
  return low <= limit && high <= limit;
}

template <int column>
__attribute__((noinline)) void QuantizeColumn(const SamplePair* samples, const Quantizer& quantizer,
                                              QuantizedBlock* low, QuantizedBlock* high) {
  SamplePair s[8];
  for (int row = 0; row < 8; ++row) s[row] = samples[8 * row + column];
  if constexpr (column >= 4) {
    if (IsNegligible(s, quantizer.negligible[column])) return;
  }
  TransformEight(s);
  uint32_t lowNonZero[2] = {low->nonZero[0], low->nonZero[1]};
  uint32_t highNonZero[2] = {high->nonZero[0], high->nonZero[1]};
  QuantizePair<column, 0>(s[0], quantizer, low, high, lowNonZero, highNonZero);
  QuantizePair<column, 1>(s[1], quantizer, low, high, lowNonZero, highNonZero);
  QuantizePair<column, 2>(s[2], quantizer, low, high, lowNonZero, highNonZero);
  QuantizePair<column, 3>(s[3], quantizer, low, high, lowNonZero, highNonZero);
  QuantizePair<column, 4>(s[4], quantizer, low, high, lowNonZero, highNonZero);
  QuantizePair<column, 5>(s[5], quantizer, low, high, lowNonZero, highNonZero);
  QuantizePair<column, 6>(s[6], quantizer, low, high, lowNonZero, highNonZero);
  QuantizePair<column, 7>(s[7], quantizer, low, high, lowNonZero, highNonZero);
  low->nonZero[0] = lowNonZero[0];
  low->nonZero[1] = lowNonZero[1];
  high->nonZero[0] = highNonZero[0];
  high->nonZero[1] = highNonZero[1];
}

}  // namespace

constexpr Quantizer LUMA_QUANTIZER = MakeQuantizer(STANDARD_LUMA_STEPS, LUMA_CUT);
constexpr Quantizer CHROMA_QUANTIZER = MakeQuantizer(STANDARD_CHROMA_STEPS, CHROMA_CUT);

void TransformAndQuantize(SamplePair* samples, const Quantizer& quantizer, QuantizedBlock* low,
                          QuantizedBlock* high) {
  for (int row = 0; row < 8; ++row) {
    SamplePair s[8];
    for (int column = 0; column < 8; ++column) s[column] = samples[8 * row + column];
    TransformEight(s);
    for (int column = 0; column < 8; ++column) samples[8 * row + column] = s[column];
  }
  low->nonZero[0] = low->nonZero[1] = 0;
  high->nonZero[0] = high->nonZero[1] = 0;
  QuantizeColumn<0>(samples, quantizer, low, high);
  QuantizeColumn<1>(samples, quantizer, low, high);
  QuantizeColumn<2>(samples, quantizer, low, high);
  QuantizeColumn<3>(samples, quantizer, low, high);
  QuantizeColumn<4>(samples, quantizer, low, high);
  QuantizeColumn<5>(samples, quantizer, low, high);
  QuantizeColumn<6>(samples, quantizer, low, high);
  QuantizeColumn<7>(samples, quantizer, low, high);
}
