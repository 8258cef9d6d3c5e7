// Switching the phone off: the order of what is done, and that nothing is answered.
#include "tests/phone/phone_test.h"

namespace {

using PowerOffTest = PhoneTest;
using simulator::PhoneEnd;

TEST_F(PowerOffTest, SleepsClosesTheChannelTellsTheDriverAndPowersOff) {
  Boot();
  const auto asked = std::chrono::steady_clock::now();
  SendCommand(0x02, Words({0}));
  const auto end = Phone().WaitForEnd(10s);
  EXPECT_GE(std::chrono::steady_clock::now() - asked, 1s);
  ASSERT_TRUE(end);
  EXPECT_EQ(end->reason, PhoneEnd::Reason::PoweredOff);
  EXPECT_EQ(end->status, 0);
  EXPECT_EQ(
      LinesSince(OfKind({JournalKind::Sleep, JournalKind::Request, JournalKind::Shell, JournalKind::Event})),
      (Lines{"sleep 1.000", "request /dev/misc/omap730_gpio 0x40044F3E", "shell /sbin/poweroff",
             "event power off", "event powered off"}));
  EXPECT_TRUE(host.IsQuiet());
}

}  // namespace
