#include "server/imaging/quantizer.h"

#include <bit>

#include "server/imaging/colour_conversion.h"
#include "server/imaging/forward_dct.h"

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

constexpr int64_t BILLION = 1000000000;

// How many units of a sample make a level of the component.
struct SampleScale {
  int64_t numerator;
  int64_t denominator;
};

constexpr SampleScale LUMA_SCALE = {LUMA_PER_LEVEL_NUMERATOR, LUMA_PER_LEVEL_DENOMINATOR};
constexpr SampleScale BLUE_SCALE = {1772 * CHROMA_ONE, 1000 << CHROMA_BITS};
constexpr SampleScale RED_SCALE = {1402 * CHROMA_ONE, 1000 << CHROMA_BITS};

// Two transforms by sqrt(8) leave coefficients 8 times too large.
constexpr uint32_t Reciprocal(int row, int column, int step, const SampleScale& samples) {
  int64_t divisor =
      DCT_SCALE[row] * DCT_SCALE[column] / BILLION * samples.numerator / samples.denominator * 8 * step;
  return static_cast<uint32_t>(((BILLION << RECIPROCAL_BITS) + divisor / 2) / divisor);
}

// Apart from the scale, a column's transform keeps the energy of its samples, so no coefficient is larger
// than the root of it. Below half the smallest step all coefficients round to zero.
constexpr int32_t Negligible(int column, int64_t smallestStep, const SampleScale& samples) {
  int64_t scale =
      DCT_SCALE[column] / 1000 * samples.numerator / samples.denominator;  // millionths; sqrt(8) below
  return static_cast<int32_t>(8 * smallestStep * smallestStep / 4 * scale / 1000000 * scale / 1000000);
}

// `firstOftenEmpty`: the first column whose samples are tested before they are transformed. The columns from
// there on are often empty.
constexpr QuantizationTable MakeTable(const uint8_t (&standard)[64], const SampleScale& low,
                                      const SampleScale& high, int firstOftenEmpty) {
  static_assert(QUALITY >= 50 && QUALITY <= 100);
  QuantizationTable table{};
  for (int column = 0; column < 8; ++column) {
    ColumnTable& entry = table.columns[column];
    int smallest = 255;
    for (int row = 0; row < 8; ++row) {
      int step = (standard[8 * row + column] * (200 - 2 * QUALITY) + 50) / 100;
      if (step < 1) step = 1;
      if (step < smallest) smallest = step;
      table.steps[8 * row + column] = static_cast<uint8_t>(step);
      entry.reciprocals[row] = Reciprocal(row, column, step, low) | Reciprocal(row, column, step, high) << 16;
      entry.positions[row] = ZIGZAG_POSITION[8 * row + column];
    }
    entry.negligible[0] = column < firstOftenEmpty ? -1 : Negligible(column, smallest, low);
    entry.negligible[1] = Negligible(column, smallest, high);
  }
  return table;
}

constexpr bool ReciprocalsFit(const QuantizationTable& table) {
  for (const ColumnTable& column : table.columns) {
    for (uint32_t reciprocals : column.reciprocals) {
      if ((reciprocals & 0x80008000) != 0) return false;
    }
  }
  return true;
}

}  // namespace

constexpr QuantizationTable LUMA_TABLE = MakeTable(STANDARD_LUMA_STEPS, LUMA_SCALE, LUMA_SCALE, 8);
constexpr QuantizationTable CHROMA_TABLE = MakeTable(STANDARD_CHROMA_STEPS, BLUE_SCALE, RED_SCALE, 3);
static_assert(ReciprocalsFit(LUMA_TABLE) && ReciprocalsFit(CHROMA_TABLE));

namespace {

inline void Keep(int32_t coefficient, uint32_t position, QuantizedBlock* block) {
  if (coefficient == 0) return;
  block->coefficients[position] = coefficient;
  block->nonZero[position / 32] |= std::rotr(0x80000000U, static_cast<int>(position));
}

// Keeps both blocks' coefficients of one position if they are not zero. They have `fractionBits` bits of
// fraction, and half a unit has been added for rounding. Most are zero in both blocks and take only one
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

// Transforms and quantizes a column of transformed rows. The arithmetic is that of TransformRow, except that
// products go to the quantizer without rounding.
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
