// The keypad: the codes of its keys, what a poll without an event remembers, and events that do not count.
#include "simulator/models/front_panel.h"
#include "tests/phone/phone_test.h"

namespace {

constexpr uint32_t KEYPAD = 0x27;

class Keypad : public PhoneTest {
 protected:
  Keypad() {
    Boot();
  }

  int32_t Poll() {
    return AskStatus(KEYPAD, Words({0xDEADBEEF}));
  }
  void Put(std::initializer_list<uint32_t> values) {
    Phone().With<simulator::Keypad>([&](simulator::Keypad& keypad) {
      for (uint32_t value : values) keypad.PutEvent(value);
    });
  }
  int32_t PollAfter(uint32_t value) {
    Put({value});
    return Poll();
  }
  void SetEventBytes(size_t size) {
    Phone().With<simulator::Keypad>([&](simulator::Keypad& keypad) { keypad.state.event_bytes = size; });
  }
};

TEST_F(Keypad, TranslatesEveryKeyAndRemembersTheLast) {
  EXPECT_EQ(Poll(), 0) << "no key yet";
  EXPECT_EQ(LinesSince(), Lines{"open /dev/input/event0 r+nonblock"});
  EXPECT_EQ(PollAfter(0), 0) << "a release before any key";

  const std::pair<uint32_t, int32_t> keys[] = {
      {0x0092, 0x3F00}, {0x0070, 0x8000}, {0x006F, 0x9000}, {0x00B0, 0x1700}, {0x00AE, 0x1800},
      {0x0074, 0x1100}, {0x0083, 0x1200}, {0x0084, 0x2C00}, {0x0085, 0x2D00}, {0x0086, 0x2E00},
      {0x0087, 0x2F00}, {0x00A2, 0x3D00}, {0x00DF, 0x8500},
  };
  for (const auto& [number, code] : keys) {
    EXPECT_EQ(PollAfter(number << 16 | 1), code) << std::hex << number;
    EXPECT_EQ(PollAfter(number << 16 | 0xABCD), code) << "its state is dropped";
    EXPECT_EQ(PollAfter(0), code | 1) << "a release returns the last key";
  }
  EXPECT_EQ(PollAfter(0x00740001), 0x1100);
  EXPECT_EQ(Poll(), 0x1101) << "quiet";

  const std::pair<uint32_t, int32_t> unknown[] = {{0x00500001, 0xFF01}, {0x005000AB, 0xFFAB},
                                                  {0x00501200, 0xFF00}, {0x00000074, 0xFF74},
                                                  {0x80740001, 0xFF01}, {0xFFFFFFFF, 0xFFFF}};
  for (const auto& [value, code] : unknown) {
    EXPECT_EQ(PollAfter(value), code) << std::hex << value;
    EXPECT_EQ(PollAfter(0), 0xFF01);
  }
  EXPECT_EQ(Poll(), 0xFF01);
}

TEST_F(Keypad, ReadsOnceAndTakesTheFirstEvent) {
  // 100 events: a read of 1024 bytes takes 64 of them, and the 65th is the next poll's first.
  Put({0x00740001});
  for (int i = 0; i < 63; ++i) Put({0x00830001});
  Put({0x00840001});
  for (int i = 0; i < 35; ++i) Put({0x00850001});
  EXPECT_EQ(Poll(), 0x1100);
  EXPECT_EQ(Poll(), 0x2C00);
  EXPECT_EQ(Poll(), 0x2C01) << "the 35 others are dropped with the 65th";
  Put({0, 0x00740001});
  EXPECT_EQ(Poll(), 0x2C01) << "a release first";
}

TEST_F(Keypad, TakesAShortEventForNone) {
  EXPECT_EQ(PollAfter(0x00740001), 0x1100);
  for (size_t size : {8u, 15u}) {
    SetEventBytes(size);
    EXPECT_EQ(PollAfter(0x00830001), 0x1101) << size << " bytes";
  }
  SetEventBytes(16);
  EXPECT_EQ(PollAfter(0x00830001), 0x1200);
}

TEST_F(Keypad, ReportsAMissingDeviceAndForgetsNothing) {
  EXPECT_EQ(PollAfter(0x00740001), 0x1100);
  Phone().TakeAway("/dev/input/event0");
  EXPECT_EQ(Poll(), GENERAL_FAILURE);
  Phone().PutBack("/dev/input/event0");
  Phone().GetFaults().FailOpen("/dev/input/event0", EACCES, 1, 1);
  EXPECT_EQ(Poll(), GENERAL_FAILURE);
  EXPECT_EQ(Poll(), 0x1101);
}

TEST_F(Keypad, IsPressedByCommand) {
  const std::pair<std::string, int32_t> presses[] = {
      {"power", 0x1100}, {"CANCEL", 0x8500}, {"0x83", 0x1200}, {"132", 0x2C00}, {"0x5000AB", 0xFFAB}};
  for (const auto& [key, code] : presses) {
    Phone().Command({"key", key});
    EXPECT_EQ(Poll(), code) << key;
  }
  EXPECT_THROW(Phone().Command({"key", "any"}), std::invalid_argument);
  EXPECT_THROW(Phone().Command({"key", "0x100000000"}), std::invalid_argument);
}

}  // namespace
