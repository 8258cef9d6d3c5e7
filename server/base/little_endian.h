// Little-endian loads and stores at any address. Flash records and wire fields may be unaligned, and the
// phone's processor cannot load an unaligned word.
#pragma once

#include <cstdint>

// Wire and driver records are used in memory as they are, so the machine must be little-endian too.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);

inline uint32_t LoadLittle32(const uint8_t* bytes) {
  return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
         static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

inline void StoreLittle32(uint8_t* bytes, uint32_t value) {
  bytes[0] = static_cast<uint8_t>(value);
  bytes[1] = static_cast<uint8_t>(value >> 8);
  bytes[2] = static_cast<uint8_t>(value >> 16);
  bytes[3] = static_cast<uint8_t>(value >> 24);
}
