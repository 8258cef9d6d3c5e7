// The real-time clock.
#include "simulator/models/real_time_clock.h"
#include "tests/phone/phone_test.h"

namespace {

using simulator::RealTimeClock;
using namespace std::chrono_literals;

const Bytes IGNORED = Words({0});
constexpr char DEVICE[] = "/dev/misc/rtc";

class ClockTest : public PhoneTest {
 protected:
  ClockTest() {
    options.instant_sleeps = true;
  }
  void SetClock(std::chrono::sys_seconds time, bool ticks) {
    Phone().With<RealTimeClock>([&](RealTimeClock& clock) {
      clock.Set(time);
      clock.state.ticks = ticks;
    });
  }
  int32_t Set(uint32_t year, uint32_t month, uint32_t day, uint32_t hour, uint32_t minute, uint32_t second) {
    return AskStatus(0x2F, Words({year, month, day, hour, minute, second, 0xFFFFFFFF, 0xFFFFFFFF}));
  }
};

constexpr std::chrono::sys_seconds NEW_YEARS_EVE =
    std::chrono::sys_days(std::chrono::year(2005) / 12 / 31) + 23h + 59min + 58s;

TEST_F(ClockTest, ReadsAndSetsTheClock) {
  SetClock(NEW_YEARS_EVE, false);
  Boot();
  EXPECT_EQ(Ask(0x2E, IGNORED, 36), Words({0, 2005, 12, 31, 23, 59, 58, 0, 0}));
  // Seconds, minutes, hours, day, month from 0, year from 1900, weekday, day of the year, no summer time.
  EXPECT_EQ(LinesSince(),
            (Lines{"open /dev/misc/rtc r",
                   "request /dev/misc/rtc 0x80247009 out 3A0000003B000000170000001F0000000B000000"
                   "69000000060000006C01000000000000"}));
  MarkJournal();
  EXPECT_EQ(Set(2006, 1, 15, 8, 30, 0), 0);
  EXPECT_EQ(LinesSince(),
            (Lines{"open /dev/misc/rtc w",
                   "request /dev/misc/rtc 0x4024700A in 000000001E000000080000000F00000000000000"
                   "6A000000000000000000000000000000"}));
  EXPECT_EQ(Ask(0x2E, IGNORED, 36), Words({0, 2006, 1, 15, 8, 30, 0, 0, 0}));
  EXPECT_EQ(Set(2004, 2, 29, 23, 59, 59), 0) << "a leap day";

  SetClock(NEW_YEARS_EVE, true);
  std::this_thread::sleep_for(2100ms);
  Bytes answer = Ask(0x2E, IGNORED, 36);
  EXPECT_LE(WordAt(answer, 24), 10u);  // however late a busy machine is
  answer.resize(24);
  EXPECT_EQ(answer, Words({0, 2006, 1, 1, 0, 0})) << "the clock ticks into the new year";
}

TEST_F(ClockTest, LetsTheDriverJudge) {
  SetClock(NEW_YEARS_EVE, false);
  Boot();
  const std::array<uint32_t, 6> REFUSED[] = {
      {2006, 2, 31, 0, 0, 0},
      {2005, 2, 29, 0, 0, 0},
      {2006, 4, 31, 0, 0, 0},
      {2006, 0, 1, 0, 0, 0},
      {2006, 13, 1, 0, 0, 0},
      {2006, 1, 0, 0, 0, 0},
      {2006, 1, 1, 24, 0, 0},
      {2006, 1, 1, 0, 60, 0},
      {2006, 1, 1, 0, 0, 60},
      {1969, 12, 31, 0, 0, 0},
      {0, 1, 1, 0, 0, 0},
      {2006, 1, 1, 0xFFFFFFFF, 0, 0},
      {0x80000000, 0x80000000, 1, 0, 0, 0},
  };
  for (const auto& date : REFUSED) {
    SCOPED_TRACE(testing::PrintToString(date));
    EXPECT_EQ(Set(date[0], date[1], date[2], date[3], date[4], date[5]), -9991);
  }
  // The differences of month and year wrap around: the driver is given 0x7FFFFFFF and 0x7FFFF894.
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Request})).back(),
            "request /dev/misc/rtc 0x4024700A in 00000000000000000000000001000000FFFFFF7F94F8FF7F"
            "000000000000000000000000 -> EINVAL");
  EXPECT_EQ(Ask(0x2E, IGNORED, 36), Words({0, 2005, 12, 31, 23, 59, 58, 0, 0})) << "the clock is as it was";
}

TEST_F(ClockTest, TellsEveryFailure) {
  Boot();
  const auto expect_failures = [&] {
    EXPECT_EQ(Ask(0x2E, IGNORED, 36), Words({static_cast<uint32_t>(-9991), 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Set(2006, 1, 15, 8, 30, 0), -9991);
  };
  Phone().With<RealTimeClock>([](RealTimeClock& clock) { clock.state.error = EIO; });
  expect_failures();
  Phone().TakeAway(DEVICE);
  expect_failures();
  EXPECT_TRUE(StillAnswers());
}

}  // namespace
