// JFIF's luma is Y = 0.299 R + 0.587 G + 0.114 B; its chroma needs only B - Y and R - Y in addition. A
// colour's level is the sum of what its upper and its lower bits contribute. This holds for green too, whose
// six bits are spread over the pixel's two bytes. So each byte of a pixel contributes shares of Y, R and B
// that do not depend on the other byte. A table of 256 words for each byte holds all three shares, and one
// addition sums them.
//
// A word's fields, from the top: level-shifted Y in quarters of a luma sample's unit (12 bits), R and B in
// levels (8 bits, and 2 for the sum of four pixels). Y is at the top because it may overflow there when words
// are summed for R and B.
#include "server/imaging/colour_conversion.h"

namespace {

constexpr int LUMA_SHIFT = 20;
constexpr int RED_SHIFT = 10;
constexpr int BLUE_SHIFT = 0;
constexpr uint32_t SUM_MASK = 0x3FF;

constexpr int LUMA_FRACTION_BITS = 2;
constexpr int32_t LEVEL_SHIFT = 128;

// Thousandths of a level in the luma field's unit.
constexpr int32_t LUMA_UNIT =
    1000 * LUMA_PER_LEVEL_DENOMINATOR / (LUMA_PER_LEVEL_NUMERATOR << LUMA_FRACTION_BITS);
static_assert(LUMA_UNIT * (LUMA_PER_LEVEL_NUMERATOR << LUMA_FRACTION_BITS) ==
              1000 * LUMA_PER_LEVEL_DENOMINATOR);

// The start value of every pixel's Y, in thousandths: the level shift, and what cutting off the fraction
// loses on average, so that the sample is rounded.
constexpr int32_t LUMA_OFFSET = ((1 << LUMA_FRACTION_BITS) - 1) * LUMA_UNIT / 2 - 1000 * LEVEL_SHIFT;

struct ByteTable {
  uint32_t shares[256];
};

constexpr int32_t RoundedQuotient(int32_t dividend, int32_t divisor) {
  return (2 * dividend + (dividend < 0 ? -divisor : divisor)) / (2 * divisor);
}

constexpr uint32_t Shares(int32_t red, int32_t green, int32_t blue, int32_t lumaOffset) {
  int32_t luma = RoundedQuotient(299 * red + 587 * green + 114 * blue + lumaOffset, LUMA_UNIT);
  return (static_cast<uint32_t>(luma) << LUMA_SHIFT) +
         static_cast<uint32_t>(red << RED_SHIFT | blue << BLUE_SHIFT);
}

// RRRRRGGG: red, and green's upper bits. A colour is widened to 8 bits by repeating its upper bits below
// them. For green these come from this byte alone.
constexpr ByteTable MakeUpperByteTable() {
  ByteTable table{};
  for (int32_t byte = 0; byte < 256; ++byte) {
    int32_t red = byte >> 3;
    int32_t green = byte & 7;
    table.shares[byte] = Shares(red << 3 | red >> 2, green << 5 | green >> 1, 0, LUMA_OFFSET);
  }
  return table;
}

// GGGBBBBB: green's lower bits, and blue.
constexpr ByteTable MakeLowerByteTable() {
  ByteTable table{};
  for (int32_t byte = 0; byte < 256; ++byte) {
    int32_t green = byte >> 5;
    int32_t blue = byte & 31;
    table.shares[byte] = Shares(0, green << 2, blue << 3 | blue >> 2, 0);
  }
  return table;
}

constexpr ByteTable UPPER_BYTE = MakeUpperByteTable();
constexpr ByteTable LOWER_BYTE = MakeLowerByteTable();

// An arithmetic shift of the word, whose upper field is signed.
inline int32_t ShiftRight(uint32_t word, int bits) {
  return static_cast<int32_t>(word) >> bits;
}

// Two converted pixels' Y.
inline SamplePair LumaPair(uint32_t left, uint32_t right) {
  constexpr int cut = LUMA_SHIFT + LUMA_FRACTION_BITS;
  return (static_cast<uint32_t>(ShiftRight(right, cut - 16)) & UPPER_HALF) +
         static_cast<uint32_t>(ShiftRight(left, cut));
}

// The mean B - Y and R - Y of four pixels, from the sum of their words and the sum of their luma samples,
// which is a half of `luma`.
template <Half half>
inline SamplePair ChromaPair(uint32_t words, SamplePair luma) {
  // 4 of a level in R and B, and 4 * 25 / 8 less 4 * 128 * 25 / 8 in Y.
  constexpr uint32_t colourFactor = CHROMA_ONE / 4;
  constexpr uint32_t lumaFactor = CHROMA_ONE * LUMA_PER_LEVEL_DENOMINATOR / LUMA_PER_LEVEL_NUMERATOR / 4;
  static_assert(lumaFactor * 4 * LUMA_PER_LEVEL_NUMERATOR == CHROMA_ONE * LUMA_PER_LEVEL_DENOMINATOR);
  constexpr int32_t offset = (1 << (CHROMA_BITS - 1)) - LEVEL_SHIFT * CHROMA_ONE;

  const int32_t minusLuma = AddProduct<half, LOW>(offset, luma, 0U - lumaFactor);
  const int32_t red = AddProduct<LOW, LOW>(minusLuma, words >> RED_SHIFT & SUM_MASK, colourFactor);
  const int32_t blue = AddProduct<LOW, LOW>(minusLuma, words >> BLUE_SHIFT & SUM_MASK, colourFactor);
  return (static_cast<uint32_t>(red) << (16 - CHROMA_BITS) & UPPER_HALF) +
         static_cast<uint32_t>(blue >> CHROMA_BITS);
}

inline uint32_t Convert(const uint8_t* pixel) {
  return LOWER_BYTE.shares[pixel[0]] + UPPER_BYTE.shares[pixel[1]];
}

// The sums that become chroma, of two by two pixels of the left block and of the right block.
struct QuadSums {
  uint32_t left;
  uint32_t right;
  SamplePair luma;
};

// Converts a pixel of the left block and the pixel eight columns to its right, which is in the right block.
inline SamplePair ConvertTwo(const uint8_t* pixel, QuadSums* sums) {
  const uint32_t left = Convert(pixel);
  const uint32_t right = Convert(pixel + 8 * 2);
  const SamplePair luma = LumaPair(left, right);
  sums->left += left;
  sums->right += right;
  sums->luma += luma;
  return luma;
}

}  // namespace

void ConvertRows(const uint8_t* pixels, int32_t bytesPerRow, SamplePair* luma, SamplePair* chroma) {
  for (int row = 0; row < 8; row += 2) {
    const uint8_t* upper = pixels;
    const uint8_t* lower = pixels + bytesPerRow;
#pragma GCC unroll 4
    for (int column = 0; column < 8; column += 2) {
      QuadSums sums{};
      luma[column] = ConvertTwo(upper, &sums);
      luma[column + 1] = ConvertTwo(upper + 2, &sums);
      luma[column + 8] = ConvertTwo(lower, &sums);
      luma[column + 9] = ConvertTwo(lower + 2, &sums);
      chroma[column / 2] = ChromaPair<LOW>(sums.left, sums.luma);
      chroma[column / 2 + 4] = ChromaPair<HIGH>(sums.right, sums.luma + HALF_A_UNIT);
      upper += 4;
      lower += 4;
    }
    pixels += 2 * static_cast<intptr_t>(bytesPerRow);
    luma += 16;
    chroma += 8;
  }
}
