// Two samples in one 32-bit word, so that one addition works on two blocks at once on a processor without
// vector instructions.
//
// A pair of samples (low, high) is the number low + 65536 * high, with signed samples. Sums, differences and
// left shifts of such numbers are the pairs of the samples' sums, differences and shifts, as long as every
// sample keeps to 16 bits; no mask is needed. Only reading the high sample as the word's upper half is
// inexact: it reads one too small when the low one is negative, since that one has borrowed. The samples
// carry a fraction bit below the picture's levels, and the coefficients made from them are at least eight
// times as fine, so this never shows.
#pragma once

#include <cstdint>
#ifdef __ARM_FEATURE_DSP
#include <arm_acle.h>
#endif

using SamplePair = uint32_t;

constexpr uint32_t HIGH_SAMPLE = 0xFFFF0000;

// sum + the pair's low (high) sample * factor, for a factor of 16 bits: the processor's SMLABB and SMLATB.
inline int32_t AddLowProduct(int32_t sum, SamplePair pair, int32_t factor) {
#ifdef __ARM_FEATURE_DSP
  return __smlabb(static_cast<int32_t>(pair), factor, sum);
#else
  return sum + static_cast<int16_t>(pair) * factor;
#endif
}

inline int32_t AddHighProduct(int32_t sum, SamplePair pair, int32_t factor) {
#ifdef __ARM_FEATURE_DSP
  return __smlatb(static_cast<int32_t>(pair), factor, sum);
#else
  return sum + static_cast<int16_t>(pair >> 16) * factor;
#endif
}

// sum + the pair's low (high) sample squared.
inline int32_t AddLowSquare(int32_t sum, SamplePair pair) {
#ifdef __ARM_FEATURE_DSP
  return __smlabb(static_cast<int32_t>(pair), static_cast<int32_t>(pair), sum);
#else
  return sum + static_cast<int16_t>(pair) * static_cast<int16_t>(pair);
#endif
}

inline int32_t AddHighSquare(int32_t sum, SamplePair pair) {
#ifdef __ARM_FEATURE_DSP
  return __smlatt(static_cast<int32_t>(pair), static_cast<int32_t>(pair), sum);
#else
  return sum + static_cast<int16_t>(pair >> 16) * static_cast<int16_t>(pair >> 16);
#endif
}

constexpr int FACTOR_BITS = 15;
constexpr int32_t FACTOR_ROUNDING = 1 << (FACTOR_BITS - 1);

// The pair of two products with FACTOR_BITS bits of fraction.
inline SamplePair PairOfProducts(int32_t low, int32_t high) {
  static_assert(FACTOR_BITS == 15);
  return (static_cast<uint32_t>(high) << 1 & HIGH_SAMPLE) + static_cast<uint32_t>(low >> FACTOR_BITS);
}

// pair * factor, rounded.
inline SamplePair Scale(SamplePair pair, int32_t factor) {
  return PairOfProducts(AddLowProduct(FACTOR_ROUNDING, pair, factor),
                        AddHighProduct(FACTOR_ROUNDING, pair, factor));
}

// a * factorA + b * factorB, rounded once.
inline SamplePair Combine(SamplePair a, int32_t factorA, SamplePair b, int32_t factorB) {
  return PairOfProducts(AddLowProduct(AddLowProduct(FACTOR_ROUNDING, a, factorA), b, factorB),
                        AddHighProduct(AddHighProduct(FACTOR_ROUNDING, a, factorA), b, factorB));
}
