#include "server/devices/run_in.h"

#include "server/base/wait.h"
#include "server/devices/display.h"
#include "server/devices/gpio_devices.h"
#include "server/devices/tone.h"

static void ShowColour(uint16_t colour, int32_t backlight) {
  DisplayTest(colour, colour, backlight);
  SleepSeconds(1);
}

static void ShowColours() {
  ShowColour(BLACK, 0);
  ShowColour(WHITE, 100);
  ShowColour(RED, 100);
  ShowColour(GREEN, 100);
  ShowColour(BLUE, 100);
}

static void PlayTone(int32_t route_flags, int32_t seconds) {
  ToneControl(2100, 1600, 0, 40, route_flags, 1);
  SleepSeconds(static_cast<unsigned>(seconds));
  ToneControl(0, 0, 0, 0, 0, 0);
}

static void Buzz() {
  MotorSet(1);
  SleepSeconds(1);
  MotorSet(0);
  SleepSeconds(1);
}

static void ShowLedColours() {
  for (int32_t colour = 1; colour <= 4; colour *= 2) {
    LedSetColor(colour);
    SleepSeconds(1);
  }
}

void RunInCycle(int32_t seconds) {
  for (;;) {
    for (int32_t i = 0; i < seconds / 5; ++i) ShowColours();
    DisplayTest(BLACK, BLACK, 0);
    PlayTone(2, seconds);
    PlayTone(1, seconds);
    for (int32_t i = 0; i < seconds / 2; ++i) Buzz();
    for (int32_t i = 0; i < seconds / 3; ++i) ShowLedColours();
    LedSetColor(0);
  }
}
