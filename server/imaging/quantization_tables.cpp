#include "server/imaging/quantization_tables.h"

#include "server/imaging/colour_conversion.h"
#include "server/imaging/forward_dct.h"
#include "server/imaging/zigzag.h"

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

// How many samples' units a level of the component has.
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

// A column's transform keeps the energy of its samples, apart from the scale, so no coefficient is larger
// than the root of it: below half the smallest step all of them round to zero.
constexpr int32_t Negligible(int column, int64_t smallestStep, const SampleScale& samples) {
  int64_t scale =
      DCT_SCALE[column] / 1000 * samples.numerator / samples.denominator;  // millionths; sqrt(8) below
  return static_cast<int32_t>(8 * smallestStep * smallestStep / 4 * scale / 1000000 * scale / 1000000);
}

// `firstOftenEmpty`: the column from which on it is worth to look at the samples before transforming them.
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
