// JFIF's luma is Y = 0.299 R + 0.587 G + 0.114 B, and its chroma needs but B - Y and R - Y besides. A field's
// level is the sum of what its upper and its lower bits bring, even green's, whose six bits lie across the
// pixel's two bytes. So each byte of a pixel brings shares of Y, R and B that do not depend on the other
// byte: one table for either byte, 256 words each, gives all three shares, and one addition sums them.
//
// A word's fields, from the top: Y in quarter levels (10 bits, and 2 for the sum of four pixels), R and B in
// levels (8 bits and 2). Chroma is made from the sum of four pixels, which holds R and B exactly.
#include "imaging/colour_conversion.h"

namespace {

constexpr int LUMA_SHIFT = 20;
constexpr int RED_SHIFT = 10;
constexpr int BLUE_SHIFT = 0;

struct ByteTable {
  uint32_t shares[256];
};

constexpr uint32_t Shares(uint32_t red, uint32_t green, uint32_t blue) {
  uint32_t luma = (4 * (299 * red + 587 * green + 114 * blue) + 500) / 1000;
  return luma << LUMA_SHIFT | red << RED_SHIFT | blue << BLUE_SHIFT;
}

// RRRRRGGG: red, and green's upper bits. A field is widened to 8 bits by repeating its upper bits below,
// which for green takes nothing from the lower byte.
constexpr ByteTable MakeUpperByteTable() {
  ByteTable table{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    uint32_t red = byte >> 3;
    uint32_t green = byte & 7;
    table.shares[byte] = Shares(red << 3 | red >> 2, green << 5 | green >> 1, 0);
  }
  return table;
}

// GGGBBBBB: green's lower bits, and blue.
constexpr ByteTable MakeLowerByteTable() {
  ByteTable table{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    uint32_t green = byte >> 5;
    uint32_t blue = byte & 31;
    table.shares[byte] = Shares(0, green << 2, blue << 3 | blue >> 2);
  }
  return table;
}

constexpr ByteTable UPPER_BYTE = MakeUpperByteTable();
constexpr ByteTable LOWER_BYTE = MakeLowerByteTable();

inline uint32_t Convert(const uint8_t* pixel) {
  return LOWER_BYTE.shares[pixel[0]] + UPPER_BYTE.shares[pixel[1]];
}

// Two converted pixels' Y, as half levels.
inline SamplePair LumaPair(uint32_t left, uint32_t right) {
  return (right >> (LUMA_SHIFT + 1 - 16) & UPPER_HALF) + (left >> (LUMA_SHIFT + 1));
}

// The mean B - Y and R - Y of four converted pixels from their words' sum, as levels.
inline SamplePair ChromaPair(uint32_t sum) {
  uint32_t luma = sum >> (LUMA_SHIFT + 2);  // quarter levels, as the sums of red and blue
  uint32_t red = (sum >> RED_SHIFT & 0x3FF) - luma;
  uint32_t blue = (sum >> BLUE_SHIFT & 0x3FF) - luma;
  return (red << (16 - 2) & UPPER_HALF) + static_cast<uint32_t>(static_cast<int32_t>(blue) >> 2);
}

}  // namespace

void ConvertRows(const uint8_t* pixels, int32_t bytesPerRow, SamplePair* luma, SamplePair* chroma) {
  for (int row = 0; row < 8; row += 2) {
    const uint8_t* upper = pixels;
    const uint8_t* lower = pixels + bytesPerRow;
#pragma GCC unroll 4
    for (int column = 0; column < 8; column += 2) {
      uint32_t left = Convert(upper);
      uint32_t right = Convert(upper + 16);
      uint32_t leftSum = left;
      uint32_t rightSum = right;
      luma[0] = LumaPair(left, right);

      left = Convert(upper + 2);
      right = Convert(upper + 18);
      leftSum += left;
      rightSum += right;
      luma[1] = LumaPair(left, right);

      left = Convert(lower);
      right = Convert(lower + 16);
      leftSum += left;
      rightSum += right;
      luma[8] = LumaPair(left, right);

      left = Convert(lower + 2);
      right = Convert(lower + 18);
      luma[9] = LumaPair(left, right);

      chroma[0] = ChromaPair(leftSum + left);
      chroma[4] = ChromaPair(rightSum + right);

      upper += 4;
      lower += 4;
      luma += 2;
      chroma += 1;
    }
    pixels += 2 * static_cast<intptr_t>(bytesPerRow);
    luma += 8;
    chroma += 4;
  }
}
