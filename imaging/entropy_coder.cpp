#include "imaging/entropy_coder.h"

#include "imaging/huffman_tables.h"

namespace {

constexpr int LENGTH_BITS = 5;
constexpr uint32_t LENGTH_MASK = (1 << LENGTH_BITS) - 1;
constexpr uint32_t SMALL_OFFSET = 8;

// The bits that a value needs: the category of T.81, tables F.1 and F.2.
constexpr int SizeOf(int32_t value) {
  uint32_t magnitude = static_cast<uint32_t>(value < 0 ? -value : value);
  return magnitude == 0 ? 0 : 32 - __builtin_clz(magnitude);
}

// A code of `size` more bits: the value itself, or one less than a negative one.
constexpr uint32_t WithValue(uint32_t codeword, int32_t value, int size) {
  uint32_t bits = static_cast<uint32_t>(value < 0 ? value - 1 : value) & ((1U << size) - 1);
  uint32_t code = codeword >> LENGTH_BITS << size | bits;
  return code << LENGTH_BITS | ((codeword & LENGTH_MASK) + static_cast<uint32_t>(size));
}

constexpr uint32_t FindCodeword(const HuffmanTable& table, uint8_t symbol) {
  // T.81, figures C.1 and C.2: codes of one length count up, and continue with a zero added at the next
  // length.
  uint32_t code = 0;
  int next = 0;
  for (uint32_t length = 1; length <= 16; ++length) {
    for (int i = 0; i < table.counts[length - 1]; ++i) {
      if (table.symbols[next++] == symbol) return code << LENGTH_BITS | length;
      ++code;
    }
    code <<= 1;
  }
  return 0;
}

constexpr EntropyCodes MakeEntropyCodes(const HuffmanTable& constant, const HuffmanTable& varying) {
  EntropyCodes codes{};
  for (uint8_t size = 0; size < 12; ++size) codes.ofConstantSize[size] = FindCodeword(constant, size);
  for (int run = 0; run < 16; ++run) {
    for (int size = 0; size < 11; ++size) {
      codes.ofRunAndSize[run][size] = FindCodeword(varying, static_cast<uint8_t>(run << 4 | size));
    }
    for (int value = -8; value < 8; ++value) {
      int size = SizeOf(value);
      codes.ofRunAndCoefficient[run][value + 8] = WithValue(codes.ofRunAndSize[run][size], value, size);
    }
  }
  return codes;
}

inline void PutCodeword(BitWriter* writer, uint32_t codeword) {
  PutBits(writer, codeword >> LENGTH_BITS, static_cast<int32_t>(codeword & LENGTH_MASK));
}

inline void PutConstant(BitWriter* writer, int32_t difference, const EntropyCodes& codes) {
  int size = SizeOf(difference);
  PutCodeword(writer, WithValue(codes.ofConstantSize[size], difference, size));
}

}  // namespace

constexpr EntropyCodes LUMA_CODES = MakeEntropyCodes(LUMA_CONSTANT_TABLE, LUMA_VARYING_TABLE);
constexpr EntropyCodes CHROMA_CODES = MakeEntropyCodes(CHROMA_CONSTANT_TABLE, CHROMA_VARYING_TABLE);

void PutBlock(BitWriter* writer, const QuantizedBlock& block, int32_t difference, const EntropyCodes& codes) {
  PutConstant(writer, difference, codes);

  int position = 1;
  const int32_t* coefficients = block.coefficients;
  uint32_t flags = block.nonZero[0] << 1;
  int half = 0;
  int last = 0;
  for (;;) {
    if (flags == 0) {
      if (half == 1) break;
      half = 1;
      position = 32;
      flags = block.nonZero[1];
      continue;
    }
    int skipped = __builtin_clz(flags);
    flags = flags << skipped << 1;
    position += skipped;
    int run = position - last - 1;
    last = position;
    int32_t value = coefficients[position++];
    while (run > 15) {
      PutCodeword(writer, codes.ofRunAndCoefficient[15][SMALL_OFFSET]);
      run -= 16;
    }
    uint32_t index = static_cast<uint32_t>(value) + SMALL_OFFSET;
    if (index < 16) {
      PutCodeword(writer, codes.ofRunAndCoefficient[run][index]);
    } else {
      int size = SizeOf(value);
      PutCodeword(writer, WithValue(codes.ofRunAndSize[run][size], value, size));
    }
  }
  if (last != 63) PutCodeword(writer, codes.ofRunAndCoefficient[0][SMALL_OFFSET]);
}

void PutPlainBlock(BitWriter* writer, const EntropyCodes& codes) {
  PutConstant(writer, 0, codes);
  PutCodeword(writer, codes.ofRunAndCoefficient[0][SMALL_OFFSET]);
}
