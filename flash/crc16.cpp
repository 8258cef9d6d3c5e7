#include "flash/crc16.h"

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

uint32_t Crc16(const uint8_t* data, uint32_t length) {
  uint32_t crc = 0xFFFF;
  for (uint32_t i = 0; i < length; ++i) crc = CRC_TABLE.entry[(crc ^ data[i]) & 0xFF] ^ crc >> 8;
  return crc;
}
