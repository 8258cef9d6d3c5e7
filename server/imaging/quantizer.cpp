#include "server/imaging/quantizer.h"

#include <bit>

#include "server/imaging/forward_dct.h"

namespace {

inline void Keep(int32_t coefficient, uint32_t position, QuantizedBlock* block) {
  if (coefficient == 0) return;
  block->coefficients[position] = coefficient;
  block->nonZero[position / 32] |= std::rotr(0x80000000U, static_cast<int>(position));
}

// Keeps both blocks' coefficients of one position where they are not zero. They have `fractionBits` bits of
// fraction, and half a unit has been added for rounding. Most are zero in both blocks, and take one
// comparison.
template <int fractionBits>
inline void KeepPair(ProductPair quotients, const uint8_t* positions, BlockPair* pair) {
  if (__builtin_expect(static_cast<uint32_t>(quotients.low | quotients.high) < 1U << fractionBits, 1)) return;
  const uint32_t position = *positions;
  Keep(quotients.low >> fractionBits, position, &pair->low);
  Keep(quotients.high >> fractionBits, position, &pair->high);
}

// sums + samples / divisors
inline ProductPair AddQuotients(ProductPair sums, SamplePair samples, SamplePair reciprocals) {
  return {AddProduct<LOW, LOW>(sums.low, samples, reciprocals),
          AddProduct<HIGH, HIGH>(sums.high, samples + HALF_A_UNIT, reciprocals)};
}

template <int row>
inline void Quantize(SamplePair samples, const ColumnTable& column, BlockPair* pair) {
  constexpr int32_t half = 1 << (RECIPROCAL_BITS - 1);
  KeepPair<RECIPROCAL_BITS>(AddQuotients({half, half}, samples, column.reciprocals[row]),
                            &column.positions[row], pair);
}

// The samples have FACTOR_BITS bits of fraction.
template <int row>
inline void Quantize(ProductPair samples, const ColumnTable& column, BlockPair* pair) {
  constexpr int fractionBits = RECIPROCAL_BITS + FACTOR_BITS - 16;
  constexpr int32_t half = 1 << (fractionBits - 1);
  const SamplePair reciprocals = column.reciprocals[row];
  KeepPair<fractionBits>({AddWideProduct<LOW>(half, samples.low, reciprocals),
                          AddWideProduct<HIGH>(half, samples.high, reciprocals)},
                         &column.positions[row], pair);
}

// Transforms and quantizes a column of transformed rows: TransformRow's arithmetic, but for the products,
// which go to the quantizer unrounded.
inline void QuantizeColumn(const SamplePair* samples, const ColumnTable& column, BlockPair* pair) {
  const Folded in = Fold(samples, 8);

  const SamplePair outer = in.sum[0] + in.sum[3];
  const SamplePair inner = in.sum[1] + in.sum[2];
  Quantize<0>(outer + inner, column, pair);
  Quantize<4>(outer - inner, column, pair);

  const uint32_t cos2One = Whole(LOW_COS_2_HIGH_ONE);
  const SamplePair slope = in.sum[0] - in.sum[3];
  const ProductPair wideSlope = AddProducts<HIGH>({0, 0}, slope, cos2One);
  const ProductPair second = AddProducts<LOW>(wideSlope, slope + in.sum[1] - in.sum[2], cos2One);
  Quantize<2>(second, column, pair);
  Quantize<6>(Reflect(second, wideSlope), column, pair);

  const uint32_t cos13 = Whole(LOW_COS_1_HIGH_COS_3);
  const SamplePair far = in.difference[0] + in.difference[1];
  const SamplePair middle = in.difference[1] + in.difference[2];
  const SamplePair near = in.difference[2] + in.difference[3];
  const ProductPair outermost = AddProducts<HIGH>({0, 0}, in.difference[0], cos2One);

  const ProductPair plus = AddProducts<LOW>(outermost, middle, cos2One);
  const ProductPair first = AddProducts<HIGH>(AddProducts<LOW>(plus, far, cos13), near, cos13);
  Quantize<1>(first, column, pair);
  Quantize<7>(Reflect(first, plus), column, pair);

  const ProductPair minus = Reflect(plus, outermost);
  const ProductPair fifth =
      AddProducts<LOW>(AddProducts<LOW>(minus, near, cos13), far, Whole(0U - COS_3_PI_8));
  Quantize<5>(fifth, column, pair);
  Quantize<3>(Reflect(fifth, minus), column, pair);
}

inline bool IsNegligible(const SamplePair* samples, const ColumnTable& column) {
  if (column.negligible[0] < 0) return false;
  int32_t low = 0;
  int32_t high = 0;
#pragma GCC unroll 8
  for (int row = 0; row < 8; ++row) {
    const SamplePair both = samples[8 * row];
    low = AddProduct<LOW, LOW>(low, both, both);
    high = AddProduct<HIGH, HIGH>(high, both + HALF_A_UNIT, both + HALF_A_UNIT);
  }
  return low <= column.negligible[0] && high <= column.negligible[1];
}

}  // namespace

void TransformAndQuantize(BlockPair* pair, const QuantizationTable& table) {
  for (int row = 0; row < 8; ++row) TransformRow(pair->samples + 8 * row);

  pair->low.nonZero[0] = pair->low.nonZero[1] = 0;
  pair->high.nonZero[0] = pair->high.nonZero[1] = 0;
  pair->low.coefficients[0] = pair->high.coefficients[0] = 0;
  const SamplePair* samples = pair->samples;
  for (const ColumnTable& column : table.columns) {
    if (!IsNegligible(samples, column)) QuantizeColumn(samples, column, pair);
    ++samples;
  }
}
