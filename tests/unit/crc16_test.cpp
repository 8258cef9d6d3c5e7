// The CRC against published values and against the polynomial's own division, bit by bit.
#include "server/flash/crc16.h"

#include <gtest/gtest.h>

#include <random>
#include <span>
#include <vector>

namespace {

// Most significant bit first, with 0x8005. The server works reflected: so bits enter in reverse order here,
// and the remainder is reversed at the end.
uint32_t CrcByDivision(std::span<const uint8_t> bytes) {
  uint32_t remainder = 0xFFFF;
  for (const uint8_t byte : bytes) {
    for (int bit = 0; bit < 8; ++bit) {
      const uint32_t carry = (remainder >> 15 ^ static_cast<uint32_t>(byte >> bit)) & 1;
      remainder = (remainder << 1 & 0xFFFF) ^ (carry != 0 ? 0x8005 : 0);
    }
  }
  uint32_t reversed = 0;
  for (int bit = 0; bit < 16; ++bit) reversed = reversed << 1 | (remainder >> bit & 1);
  return reversed;
}

TEST(Crc16, PublishedValues) {
  EXPECT_EQ(Crc16(reinterpret_cast<const uint8_t*>("123456789"), 9), 0x4B37U);
  EXPECT_EQ(Crc16(nullptr, 0), 0xFFFFU);
  const uint8_t modbus_request[] = {0x01, 0x03, 0x00, 0x00, 0x00, 0x0A};  // goes out followed by C5 CD
  EXPECT_EQ(Crc16(modbus_request, sizeof modbus_request), 0xCDC5U);
}

TEST(Crc16, EqualsThePolynomialDivision) {
  std::mt19937 random(1);
  std::vector<uint8_t> record(32768);
  for (uint8_t& byte : record) byte = static_cast<uint8_t>(random());
  for (uint32_t start = 0; start < 9; ++start) {
    for (uint32_t length = 0; length < 80; ++length) {
      const std::span<const uint8_t> piece(record.data() + start, length);
      ASSERT_EQ(Crc16(piece.data(), length), CrcByDivision(piece)) << length << " bytes from " << start;
    }
  }
  EXPECT_EQ(Crc16(record.data() + 4, 32764), CrcByDivision(std::span(record).subspan(4)));
}

}  // namespace
