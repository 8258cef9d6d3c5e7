// What the simulated phone itself promises, whatever server runs on it.
#include <fcntl.h>
#include <unistd.h>

#include "simulator/models/framebuffer.h"
#include "tests/phone/phone_test.h"

class Simulator : public PhoneTest {};

TEST_F(Simulator, KeepsOneOrderedJournal) {
  Boot();
  EXPECT_TRUE(StillAnswers());
  MarkJournal();
  EXPECT_EQ(AskStatus(0x39, Words({0xFFFFFFFF, 0})), SUCCESS);
  // A value that a program wrote before it ended stands before what comes after that program.
  EXPECT_EQ(LinesSince(), (Lines{
                              "shell echo 0 >  /proc/cLED_wlpg/force_led_off",
                              "open /proc/cLED_wlpg/force_led_off w+create+truncate",
                              "value /proc/cLED_wlpg/force_led_off \"0\\n\"",
                              "shell echo 519 >  /proc/cLED_wlpg/timing",
                              "open /proc/cLED_wlpg/timing w+create+truncate",
                              "value /proc/cLED_wlpg/timing \"519\\n\"",
                              "shell echo -1 > /proc/cLED_wlpg/color",
                              "open /proc/cLED_wlpg/color w+create+truncate",
                              "value /proc/cLED_wlpg/color \"-1\\n\"",
                          }));
}
