// The forward discrete cosine transform of eight samples, on pairs of samples.
//
// The factorization is that of Arai, Agui and Nakajima (Trans. IEICE E71, 1988), with the rotation of the odd
// half written out: 26 additions and 6 products. It leaves coefficient k of the transform of ITU-T T.81,
// A.3.3, too large by the factor sqrt(8) * DCT_SCALE[k]. The quantizer's divisors contain these factors, so
// that they cost nothing.
//
// Eight samples of magnitude m give coefficients of magnitude up to 10.06 m (k = 1), and the sums that a
// column's transform makes of eight of these are up to 8 times that. So samples of up to 128 * 25 / 8 stay
// within 16 bits.
#pragma once

#include "server/imaging/sample_pair.h"

// 10^9 times 1 for k = 0, and 10^9 times sqrt(2) * cos(k * pi / 16) for the others.
constexpr int64_t DCT_SCALE[8] = {1000000000, 1387039845, 1306562965, 1175875602,
                                  1000000000, 785694958,  541196100,  275899379};

constexpr int FACTOR_BITS = 14;
constexpr uint32_t ONE = 1 << FACTOR_BITS;
constexpr uint32_t COS_1_PI_8 = 15137;
constexpr uint32_t COS_2_PI_8 = 11585;
constexpr uint32_t COS_3_PI_8 = 6270;

// Two factors in a word, since an instruction can use either half of it.
constexpr uint32_t LOW_COS_1_HIGH_COS_3 = COS_1_PI_8 | COS_3_PI_8 << 16;
constexpr uint32_t LOW_COS_2_HIGH_ONE = COS_2_PI_8 | ONE << 16;
constexpr uint32_t LOW_COS_2_HIGH_MINUS_COS_3 = COS_2_PI_8 | (0U - COS_3_PI_8) << 16;

// Keeps the compiler from splitting a word of two factors into constants that each cost an instruction.
inline uint32_t Whole(uint32_t factors) {
#ifdef __ARM_FEATURE_DSP
  asm("" : "+r"(factors));
#endif
  return factors;
}

// What both halves of the transform start from: the sums yield the even coefficients, the differences the
// odd.
struct Folded {
  SamplePair sum[4];
  SamplePair difference[4];
};

// Sample k is in[k * stride].
inline Folded Fold(const SamplePair* in, int stride) {
  Folded folded;
  folded.sum[0] = in[0] + in[7 * stride];
  folded.difference[0] = in[0] - in[7 * stride];
  folded.sum[1] = in[stride] + in[6 * stride];
  folded.difference[1] = in[stride] - in[6 * stride];
  folded.sum[2] = in[2 * stride] + in[5 * stride];
  folded.difference[2] = in[2 * stride] - in[5 * stride];
  folded.sum[3] = in[3 * stride] + in[4 * stride];
  folded.difference[3] = in[3 * stride] - in[4 * stride];
  return folded;
}

// Products begin with half a unit and are rounded once, when they become samples again.
constexpr ProductPair ROUNDING = {1 << (FACTOR_BITS - 1), 1 << (FACTOR_BITS - 1)};

inline SamplePair Samples(ProductPair products) {
  return (static_cast<uint32_t>(products.high) << (16 - FACTOR_BITS) & UPPER_HALF) +
         static_cast<uint32_t>(products.low >> FACTOR_BITS);
}

// Transforms a row in place.
inline void TransformRow(SamplePair* row) {
  const uint32_t cos13 = Whole(LOW_COS_1_HIGH_COS_3);
  const uint32_t cos2MinusCos3 = Whole(LOW_COS_2_HIGH_MINUS_COS_3);
  const Folded in = Fold(row, 1);

  const SamplePair outer = in.sum[0] + in.sum[3];
  const SamplePair inner = in.sum[1] + in.sum[2];
  row[0] = outer + inner;
  row[4] = outer - inner;

  const SamplePair slope = in.sum[0] - in.sum[3];
  const SamplePair bend = Samples(AddProducts<LOW>(ROUNDING, slope + in.sum[1] - in.sum[2], cos2MinusCos3));
  row[2] = slope + bend;
  row[6] = slope - bend;

  const SamplePair far = in.difference[0] + in.difference[1];
  const SamplePair middle = in.difference[1] + in.difference[2];
  const SamplePair near = in.difference[2] + in.difference[3];
  const SamplePair middlePart = Samples(AddProducts<LOW>(ROUNDING, middle, cos2MinusCos3));

  const SamplePair plus = in.difference[0] + middlePart;
  const SamplePair along = Samples(AddProducts<HIGH>(AddProducts<LOW>(ROUNDING, far, cos13), near, cos13));
  row[1] = plus + along;
  row[7] = plus - along;

  const SamplePair minus = in.difference[0] - middlePart;
  const SamplePair across =
      Samples(AddProducts<HIGH>(AddProducts<LOW>(ROUNDING, near, cos13), far, cos2MinusCos3));
  row[5] = minus + across;
  row[3] = minus - across;
}
