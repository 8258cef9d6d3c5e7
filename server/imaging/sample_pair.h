// Two samples in one 32-bit word, so that one addition works on two blocks at once on a processor without
// vector instructions.
//
// A pair of signed samples (low, high) is the number low + 65536 * high. Sums, differences and multiples of
// such numbers are the pairs of the samples' sums, differences and multiples, without a mask, as long as
// every sample stays within 16 bits. The word's lower half is the low sample. Its upper half is the high
// sample, or one less if the low sample is negative and has borrowed from it. So the upper half is read after
// half a unit has been added to the number.
//
// Products are not pairs: they are sums of 32 bits, one for each sample.
#pragma once

#include <cstdint>
#ifdef __ARM_FEATURE_DSP
#include <arm_acle.h>
#endif

using SamplePair = uint32_t;

struct ProductPair {
  int32_t low;
  int32_t high;
};

enum Half { LOW, HIGH };

constexpr uint32_t UPPER_HALF = 0xFFFF0000;
constexpr SamplePair HALF_A_UNIT = 0x8000;

template <Half half>
inline int32_t SignedHalf(uint32_t word) {
  return static_cast<int16_t>(half == LOW ? word : word >> 16);
}

// sum + a half of `a` * a half of `b`: the phone's SMLABB, SMLABT, SMLATB and SMLATT.
template <Half halfOfA, Half halfOfB>
inline int32_t AddProduct(int32_t sum, uint32_t a, uint32_t b) {
#ifdef __ARM_FEATURE_DSP
  const int32_t x = static_cast<int32_t>(a);
  const int32_t y = static_cast<int32_t>(b);
  if constexpr (halfOfA == LOW && halfOfB == LOW) return __smlabb(x, y, sum);
  if constexpr (halfOfA == LOW && halfOfB == HIGH) return __smlabt(x, y, sum);
  if constexpr (halfOfA == HIGH && halfOfB == LOW) return __smlatb(x, y, sum);
  if constexpr (halfOfA == HIGH && halfOfB == HIGH) return __smlatt(x, y, sum);
#else
  return sum + SignedHalf<halfOfA>(a) * SignedHalf<halfOfB>(b);
#endif
}

// sum + a * a half of `b` / 65536, rounded down: the phone's SMLAWB and SMLAWT.
template <Half halfOfB>
inline int32_t AddWideProduct(int32_t sum, int32_t a, uint32_t b) {
#ifdef __ARM_FEATURE_DSP
  const int32_t y = static_cast<int32_t>(b);
  return halfOfB == LOW ? __smlawb(a, y, sum) : __smlawt(a, y, sum);
#else
  return sum + static_cast<int32_t>(static_cast<int64_t>(a) * SignedHalf<halfOfB>(b) >> 16);
#endif
}

// The sums and both samples' products with one factor, a half of `factors`.
template <Half half>
inline ProductPair AddProducts(ProductPair sums, SamplePair samples, uint32_t factors) {
  return {AddProduct<LOW, half>(sums.low, samples, factors),
          AddProduct<HIGH, half>(sums.high, samples + HALF_A_UNIT, factors)};
}

// From a + b and a to a - b.
inline ProductPair Reflect(ProductPair sum, ProductPair a) {
  return {2 * a.low - sum.low, 2 * a.high - sum.high};
}

// Two 8 x 8 blocks of a picture on their way from samples to coefficients.

// A block's quantized coefficients in coding order. Only those that the flags name are valid. The constant
// one, which is the first, is always valid and has no flag.
struct QuantizedBlock {
  int32_t coefficients[64];
  uint32_t nonZero[2];  // positions 0 to 31 and 32 to 63, the first in the uppermost bit
};

struct BlockPair {
  SamplePair samples[64];  // by rows
  QuantizedBlock low;
  QuantizedBlock high;
};
