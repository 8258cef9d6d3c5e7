#include "server/devices/keypad.h"

#include <gtest/gtest.h>

namespace {

TEST(KeyTranslate, EveryKnownKeyLosesItsState) {
  const struct {
    uint32_t raw, code;
  } keys[] = {{0x92, 0x3F00}, {0x70, 0x8000}, {0x6F, 0x9000}, {0xB0, 0x1700}, {0xAE, 0x1800},
              {0x74, 0x1100}, {0x83, 0x1200}, {0x84, 0x2C00}, {0x85, 0x2D00}, {0x86, 0x2E00},
              {0x87, 0x2F00}, {0xA2, 0x3D00}, {0xDF, 0x8500}};
  for (const auto& key : keys) {
    for (const uint32_t state : {0x0000U, 0x0001U, 0x00FFU, 0xFFFFU}) {
      EXPECT_EQ(KeyTranslate(key.raw << 16 | state), key.code) << std::hex << key.raw << " " << state;
    }
  }
}

TEST(KeyTranslate, UnknownKeyKeepsTheLowByteOfItsState) {
  EXPECT_EQ(KeyTranslate(0x00500001), 0xFF01U);
  EXPECT_EQ(KeyTranslate(0x005012AB), 0xFFABU);
  EXPECT_EQ(KeyTranslate(0x00000070), 0xFF70U);  // a key's number in the wrong half
  EXPECT_EQ(KeyTranslate(0x80740001), 0xFF01U);
  EXPECT_EQ(KeyTranslate(0xFFFFFFFF), 0xFFFFU);
  EXPECT_EQ(KeyTranslate(0), 0U);
}

}  // namespace
