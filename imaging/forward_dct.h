// The forward discrete cosine transform of eight samples, on pairs of samples.
//
// The factorization is that of Arai, Agui and Nakajima (Trans. IEICE E71, 1988), which leaves coefficient k
// of the transform of ITU-T T.81, A.3.3, too large by the factor sqrt(8) * DCT_SCALE[k]; the quantizer's
// divisors take these factors away again, so that they cost nothing. The odd half's rotation is done as two
// sums of two products, each rounded once.
//
// Eight samples of magnitude m give results of magnitude up to 10.1 m (coefficient 1). A transform of rows
// and columns of samples from 0 to 511 stays within 16 bits: the constant coefficient reaches 64 * 511 and
// the others, to which only the distance from the middle counts, 10.1^2 * 256.
#pragma once

#include "imaging/sample_pair.h"

// 10^9 times: 1 for 0, else sqrt(2) * cos(k * pi / 16).
constexpr int64_t DCT_SCALE[8] = {1000000000, 1387039845, 1306562965, 1175875602,
                                  1000000000, 785694958,  541196100,  275899379};

constexpr int32_t COS_PI_1_8 = 30274;  // with FACTOR_BITS bits of fraction
constexpr int32_t COS_PI_2_8 = 23170;
constexpr int32_t COS_PI_3_8 = 12540;

// Transforms the samples in place.
inline void TransformEight(SamplePair (&s)[8]) {
  SamplePair sum0 = s[0] + s[7];
  SamplePair sum1 = s[1] + s[6];
  SamplePair sum2 = s[2] + s[5];
  SamplePair sum3 = s[3] + s[4];
  SamplePair difference0 = s[0] - s[7];
  SamplePair difference1 = s[1] - s[6];
  SamplePair difference2 = s[2] - s[5];
  SamplePair difference3 = s[3] - s[4];

  // Even coefficients: a transform of four.
  SamplePair outer = sum0 + sum3;
  SamplePair inner = sum1 + sum2;
  s[0] = outer + inner;
  s[4] = outer - inner;
  SamplePair slope = sum0 - sum3;
  SamplePair half = Scale(slope + sum1 - sum2, COS_PI_2_8);
  s[2] = slope + half;
  s[6] = slope - half;

  // Odd coefficients.
  SamplePair far = difference0 + difference1;
  SamplePair middle = Scale(difference1 + difference2, COS_PI_2_8);
  SamplePair near = difference2 + difference3;
  SamplePair along = Combine(far, COS_PI_1_8, near, COS_PI_3_8);
  SamplePair across = Combine(near, COS_PI_1_8, far, -COS_PI_3_8);
  s[1] = difference0 + middle + along;
  s[7] = difference0 + middle - along;
  s[5] = difference0 - middle + across;
  s[3] = difference0 - middle - across;
}
