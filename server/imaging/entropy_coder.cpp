#include "server/imaging/entropy_coder.h"

#include "server/imaging/huffman_tables.h"

namespace {

constexpr int32_t LONGEST_RUN = 15;
constexpr int32_t SMALL_OFFSET = 8;
constexpr uint32_t SMALL_VALUES = 16;
constexpr uint32_t END_OF_BLOCK = SMALL_OFFSET;                                // run 0, value 0
constexpr uint32_t SIXTEEN_ZEROS = LONGEST_RUN * SMALL_VALUES + SMALL_OFFSET;  // run 15, value 0

// The number of bits that code a value: the category of T.81, tables F.1 and F.2.
constexpr int32_t SizeOf(int32_t value) {
  uint32_t magnitude = static_cast<uint32_t>(value < 0 ? -value : value);
  return 31 - __builtin_clz(2 * magnitude + 1);
}

// A value's `size` bits: its own lowest bits, or for a negative value those of the value minus 1.
constexpr uint32_t ValueBits(int32_t value, int32_t size) {
  return static_cast<uint32_t>(value + (value >> 31)) & ~(~0U << size);
}

// T.81, figures C.1 and C.2: codes of one length count up. The next length continues with a zero appended.
template <size_t count>
constexpr void AssignCodes(const HuffmanTable& table, uint16_t (&codes)[count], uint8_t (&lengths)[count]) {
  uint16_t code = 0;
  int next = 0;
  for (uint8_t length = 1; length <= 16; ++length) {
    for (int i = 0; i < table.counts[length - 1]; ++i) {
      codes[table.symbols[next]] = code++;
      lengths[table.symbols[next++]] = length;
    }
    code = static_cast<uint16_t>(code << 1);
  }
}

constexpr EntropyCodes MakeEntropyCodes(const HuffmanTable& constant, const HuffmanTable& varying) {
  EntropyCodes codes{};
  AssignCodes(constant, codes.constantCode, codes.constantLength);
  AssignCodes(varying, codes.code, codes.length);
  for (int32_t run = 0; run <= LONGEST_RUN; ++run) {
    for (int32_t value = -SMALL_OFFSET; value < SMALL_OFFSET; ++value) {
      int32_t size = SizeOf(value);
      int32_t symbol = run << 4 | size;
      int32_t index = run << 4 | (value + SMALL_OFFSET);
      codes.smallCode[index] = static_cast<uint32_t>(codes.code[symbol]) << size | ValueBits(value, size);
      codes.smallLength[index] = static_cast<uint8_t>(codes.length[symbol] + size);
    }
  }
  return codes;
}

inline void PutSmall(BitWriter* writer, PendingBits* pending, uint32_t index, const EntropyCodes& codes) {
  PutBits(writer, pending, codes.smallCode[index], codes.smallLength[index]);
}

inline void PutValue(BitWriter* writer, PendingBits* pending, uint32_t code, int32_t length, int32_t value,
                     int32_t size) {
  PutBits(writer, pending, code << size | ValueBits(value, size), length + size);
}

// A run of zeros and the coefficient after it.
inline void PutCoefficient(BitWriter* writer, PendingBits* pending, int32_t run, int32_t value,
                           const EntropyCodes& codes) {
  uint32_t small = static_cast<uint32_t>(value + SMALL_OFFSET);
  uint32_t zeros = static_cast<uint32_t>(run);
  if (__builtin_expect((small | zeros) < SMALL_VALUES, 1)) {
    PutSmall(writer, pending, zeros * SMALL_VALUES + small, codes);
    return;
  }
  for (; run > LONGEST_RUN; run -= LONGEST_RUN + 1) PutSmall(writer, pending, SIXTEEN_ZEROS, codes);
  int32_t size = SizeOf(value);
  int32_t symbol = run << 4 | size;
  PutValue(writer, pending, codes.code[symbol], codes.length[symbol], value, size);
}

inline void PutConstant(BitWriter* writer, PendingBits* pending, int32_t difference,
                        const EntropyCodes& codes) {
  int32_t size = SizeOf(difference);
  PutValue(writer, pending, codes.constantCode[size], codes.constantLength[size], difference, size);
}

}  // namespace

constexpr EntropyCodes LUMA_CODES = MakeEntropyCodes(LUMA_CONSTANT_TABLE, LUMA_VARYING_TABLE);
constexpr EntropyCodes CHROMA_CODES = MakeEntropyCodes(CHROMA_CONSTANT_TABLE, CHROMA_VARYING_TABLE);

void PutBlock(BitWriter* writer, const QuantizedBlock& block, int32_t difference, const EntropyCodes& codes) {
  PendingBits pending = writer->pending;
  PutConstant(writer, &pending, difference, codes);

  const int32_t* next = block.coefficients + 1;
  uint32_t flags = block.nonZero[0] << 1;  // the first is that of the coefficient that is next
  int32_t run = 0;
  for (const int32_t* end = block.coefficients + 32;; end += 32) {
    while (flags != 0) {
      int32_t zeros = __builtin_clz(flags);
      flags = flags << zeros << 1;
      next += zeros;
      PutCoefficient(writer, &pending, run + zeros, *next++, codes);
      run = 0;
    }
    run += static_cast<int32_t>(end - next);
    if (end == block.coefficients + 64) break;
    next = end;
    flags = block.nonZero[1];
  }
  if (run > 0) PutSmall(writer, &pending, END_OF_BLOCK, codes);
  writer->pending = pending;
}

void PutPlainBlock(BitWriter* writer, const EntropyCodes& codes) {
  PutConstant(writer, &writer->pending, 0, codes);
  PutSmall(writer, &writer->pending, END_OF_BLOCK, codes);
}
