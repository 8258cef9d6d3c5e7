// The hexadecimal text that goes to the Bluetooth tool and comes back from it.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "server/bluetooth/test_tool.h"

namespace {

using Bytes = std::vector<uint8_t>;

TEST(HexEncodeUpper, TwoDigitsAByteAndAnEndingZero) {
  Bytes bytes(256);
  std::iota(bytes.begin(), bytes.end(), uint8_t{0});
  std::string expected;
  for (unsigned i = 0; i < 256; ++i) {
    char digits[3];
    snprintf(digits, sizeof digits, "%02X", i);
    expected += digits;
  }
  for (const uint32_t count : {256U, 6U, 1U, 0U}) {
    std::vector<char> text(2 * count + 2, '#');
    HexEncodeUpper(bytes.data(), count, text.data());
    EXPECT_EQ(std::string(text.data()), expected.substr(0, 2 * count));
    EXPECT_EQ(text.back(), '#') << "written after the ending zero";
  }
}

// What is read into bytes that were all 0xEE.
Bytes Read(const std::string& output, const char* key, uint32_t count) {
  Bytes bytes(count, 0xEE);
  ReadHexBytes(output.c_str(), key, bytes.data(), count);
  return bytes;
}

TEST(ReadHexBytes, PairsBehindTheFirstKey) {
  EXPECT_EQ(Read("Status=0; ResultB=01:7f:80:FF:0a", "ResultB=", 5), (Bytes{0x01, 0x7F, 0x80, 0xFF, 0x0A}));
  EXPECT_EQ(Read("ResultB=12 34; ResultB=56", "ResultB=", 2), (Bytes{0x12, 0x34}));
  EXPECT_EQ(Read("ResultB=AB\nCD\nEF\n", "ResultB=", 2), (Bytes{0xAB, 0xCD}));
  EXPECT_EQ(Read("ResultA=12", "ResultB=", 2), (Bytes{0xEE, 0xEE})) << "no key, nothing read";
  EXPECT_EQ(Read("", "ResultA=", 1), (Bytes{0xEE}));
  EXPECT_EQ(Read("ResultB=12", "ResultB=", 0), (Bytes{}));
}

TEST(ReadHexBytes, WhatIsNotAPairIsZeroOrItsDigit) {
  EXPECT_EQ(Read("ResultA=", "ResultA=", 2), (Bytes{0, 0}));
  EXPECT_EQ(Read("ResultA=12:3", "ResultA=", 3), (Bytes{0x12, 0x03, 0}));
  EXPECT_EQ(Read("ResultA=zz:34", "ResultA=", 2), (Bytes{0, 0x34}));
  EXPECT_EQ(Read("ResultA=1::2::", "ResultA=", 2), (Bytes{0x01, 0x02}));
}

TEST(ReadHexBytes, StopsAtTheEndOfATextThatFillsItsBuffer) {
  const auto page_size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  auto* pages = static_cast<char*>(
      mmap(nullptr, 2 * page_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_EQ(mprotect(pages + page_size, page_size, PROT_NONE), 0);  // any byte after the buffer is a crash
  char* const output = pages + page_size - BT_TEXT_SIZE;
  const std::string key = "ResultA=";
  for (size_t digits = 0; digits < 80; ++digits) {
    memset(output, '1', BT_TEXT_SIZE - 1);
    output[BT_TEXT_SIZE - 1] = '\0';
    key.copy(output + BT_TEXT_SIZE - 1 - digits - key.size(), key.size());
    Bytes bytes(23, 0xEE), expected(23, 0);
    ReadHexBytes(output, key.c_str(), bytes.data(), 23);
    for (size_t i = 0; i < 23; ++i) {
      if (3 * i < digits) expected[i] = digits - 3 * i == 1 ? 0x01 : 0x11;
    }
    EXPECT_EQ(bytes, expected) << digits << " digits";
  }
  munmap(pages, 2 * page_size);
}

}  // namespace
