// Two textbook ways to compute the server's CRC, to compare it with.
#pragma once

#include <array>
#include <cstdint>

inline uint32_t Crc16Bitwise(const uint8_t* data, uint32_t length) {
  uint32_t crc = 0xFFFF;
  for (uint32_t i = 0; i < length; ++i) {
    crc ^= data[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? crc >> 1 ^ 0xA001 : crc >> 1;
  }
  return crc;
}

// Byte after byte through a table of 256 words.
inline uint32_t Crc16Bytewise(const uint8_t* data, uint32_t length) {
  static const std::array<uint32_t, 256> table = [] {
    std::array<uint32_t, 256> entries = {};
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t crc = i;
      for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? crc >> 1 ^ 0xA001 : crc >> 1;
      entries[i] = crc;
    }
    return entries;
  }();
  uint32_t crc = 0xFFFF;
  for (uint32_t i = 0; i < length; ++i) crc = table[(crc ^ data[i]) & 0xFF] ^ crc >> 8;
  return crc;
}
