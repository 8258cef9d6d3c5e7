#include "server/flash/crc16.h"

#include <algorithm>
#include <cstddef>

// A word that may alias any four bytes.
using Word [[gnu::may_alias]] = uint32_t;

struct CrcTable {
  uint32_t entry[256];
};

// Entry i is the CRC of the single byte i, started from 0.
static constexpr CrcTable MakeCrcTable() {
  CrcTable table = {};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? crc >> 1 ^ 0xA001 : crc >> 1;
    table.entry[byte] = crc;
  }
  return table;
}

constexpr CrcTable CRC_TABLE = MakeCrcTable();
static_assert(CRC_TABLE.entry[1] == 0xC0C1 && CRC_TABLE.entry[255] == 0x4040);

// Takes the lowest byte, which has been added to the CRC already. The bytes above move down to be next.
static inline uint32_t TakeByte(uint32_t crc) {
  return CRC_TABLE.entry[crc & 0xFF] ^ crc >> 8;
}

static uint32_t TakeBytes(uint32_t crc, const uint8_t* data, size_t length) {
  for (size_t i = 0; i < length; ++i) crc = TakeByte(crc ^ data[i]);
  return crc;
}

static inline uint32_t TakeWord(uint32_t crc, const uint8_t* aligned) {
  crc ^= *static_cast<const Word*>(static_cast<const void*>(aligned));
  return TakeByte(TakeByte(TakeByte(TakeByte(crc))));
}

// The product of two polynomials modulo the CRC's. As in a CRC, bit 15 is 1 and bit 0 is x^15.
static constexpr uint32_t Multiply(uint32_t a, uint32_t b) {
  uint32_t product = 0;
  for (uint32_t bit = 0x8000; bit != 0; bit >>= 1) {
    if ((b & bit) != 0) product ^= a;
    a = (a & 1) != 0 ? a >> 1 ^ 0xA001 : a >> 1;
  }
  return product;
}

// The factor of a CRC that `count` zero bytes follow: x^8 to that power.
static constexpr uint32_t ZeroBytes(size_t count) {
  uint32_t power = 0x8000;
  for (uint32_t square = 0x0080; count != 0; count >>= 1) {
    if ((count & 1) != 0) power = Multiply(power, square);
    square = Multiply(square, square);
  }
  return power;
}

uint32_t Crc16(const uint8_t* data, uint32_t length) {
  const size_t unaligned = std::min<size_t>(length, -reinterpret_cast<uintptr_t>(data) % sizeof(Word));
  uint32_t first = TakeBytes(0xFFFF, data, unaligned);
  data += unaligned;
  const size_t left = length - unaligned;

  // Each step waits for the look-up of the step before. So the data is taken in four strips side by side,
  // whose CRCs are joined: CRCs add up, and each strip counts as if the length of the next ones followed it
  // in zeros.
  const size_t strip = left / (4 * sizeof(Word)) * sizeof(Word);
  uint32_t second = 0, third = 0, fourth = 0;
  for (const uint8_t* end = data + strip; data < end; data += sizeof(Word)) {
    first = TakeWord(first, data);
    second = TakeWord(second, data + strip);
    third = TakeWord(third, data + 2 * strip);
    fourth = TakeWord(fourth, data + 3 * strip);
  }
  const uint32_t next = ZeroBytes(strip);
  const uint32_t crc = Multiply(Multiply(Multiply(first, next) ^ second, next) ^ third, next) ^ fourth;
  return TakeBytes(crc, data + 3 * strip, left - 4 * strip);
}
