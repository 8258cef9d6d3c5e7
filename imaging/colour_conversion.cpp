// The JFIF conversion is linear in the red, green and blue levels:
//   Y = 0.299 R + 0.587 G + 0.114 B,  Cb = 128 + (B - Y) / 1.772,  Cr = 128 + (R - Y) / 1.402
// and a field's level is linear in the field's upper and its lower bits apart, even green, whose six bits lie
// across the pixel's two bytes. So each byte of a pixel brings a share of Y, Cb and Cr that does not depend
// on the other byte: one table for either byte, 256 words each, gives all three shares, and one addition sums
// them.
//
// A word's fields, from the top: Y in quarter levels (10 bits), Cb and Cr in half levels (11 bits each: 9,
// and room for the sum of four pixels). Y is at the top so that it may overflow out of the word when the
// words of four pixels are summed for their chroma.
#include "imaging/colour_conversion.h"

namespace {

constexpr int LUMA_SHIFT = 22;
constexpr int CB_SHIFT = 11;
constexpr int CR_SHIFT = 0;

struct ByteTable {
  uint32_t shares[256];
};

constexpr int32_t RoundedQuotient(int32_t dividend, int32_t divisor) {
  int32_t doubled = 2 * dividend + divisor;
  int32_t quotient = doubled / (2 * divisor);
  return doubled % (2 * divisor) < 0 ? quotient - 1 : quotient;
}

// `chromaOffset`: the 128 levels of Cb and Cr, for one of the two tables to bring.
constexpr uint32_t Shares(int32_t red, int32_t green, int32_t blue, int32_t chromaOffset) {
  int32_t y = RoundedQuotient(4 * (299 * red + 587 * green + 114 * blue), 1000);
  int32_t cb = RoundedQuotient(2 * (886 * blue - 299 * red - 587 * green), 1772) + 2 * chromaOffset;
  int32_t cr = RoundedQuotient(2 * (701 * red - 587 * green - 114 * blue), 1402) + 2 * chromaOffset;
  return (static_cast<uint32_t>(y) << LUMA_SHIFT) + (static_cast<uint32_t>(cb) << CB_SHIFT) +
         (static_cast<uint32_t>(cr) << CR_SHIFT);
}

// RRRRRGGG: red, and green's upper bits. A field is widened to 8 bits by repeating its upper bits below,
// which for green takes nothing from the lower byte.
constexpr ByteTable MakeUpperByteTable() {
  ByteTable table{};
  for (int32_t byte = 0; byte < 256; ++byte) {
    int32_t red = byte >> 3;
    int32_t green = byte & 7;
    table.shares[byte] = Shares(red << 3 | red >> 2, green << 5 | green >> 1, 0, 128);
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

inline uint32_t Convert(const uint8_t* pixel) {
  return LOWER_BYTE.shares[pixel[0]] + UPPER_BYTE.shares[pixel[1]];
}

// Two converted pixels' Y, as half levels.
inline SamplePair LumaPair(uint32_t left, uint32_t right) {
  return (right >> (LUMA_SHIFT + 1 - 16) & HIGH_SAMPLE) + (left >> (LUMA_SHIFT + 1));
}

// The mean Cb and Cr of four converted pixels from their words' sum, as half levels.
inline SamplePair ChromaPair(uint32_t sum) {
  constexpr uint32_t NINE_BITS = 0x1FF;
  return (sum >> (CB_SHIFT + 2) & NINE_BITS) + ((sum >> (CR_SHIFT + 2) & NINE_BITS) << 16);
}

}  // namespace

void ConvertMacroblock(const uint8_t* pixels, int32_t bytesPerRow, MacroblockSamples* samples) {
  SamplePair* luma = samples->lumaTop;  // and on into lumaBottom
  SamplePair* chroma = samples->chroma;
  for (int row = 0; row < 16; row += 2) {
    const uint8_t* upper = pixels;
    const uint8_t* lower = pixels + bytesPerRow;
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
