// The extended commands, codes 0x22 to 0x49: served unless they are switched off at start-up.
#include "devices/display.h"
#include "devices/gpio_devices.h"
#include "service/command.h"

static int32_t ShowDisplayTest(const Words<4>& request, NoData&) {
  return DisplayTest(request.word[0], request.word[1], request.word[2]);
}

static int32_t SwitchMotor(const Words<2>& request, NoData&) {
  return MotorSet(request.word[0]);
}

static int32_t SetLedColor(const Words<2>& request, NoData&) {
  return LedSetColor(request.word[0]);
}

static int32_t SetGsmUartRx(const Words<2>& request, NoData&) {
  return GsmUartRxSet(request.word[0]);
}

constexpr CommandEntry ExtendedCommandTable[] = {
    // code  request, data behind the status, work
    {0x28, Command<Words<4>, NoData, ShowDisplayTest>},
    {0x2B, Command<Words<2>, NoData, SwitchMotor>},
    {0x39, Command<Words<2>, NoData, SetLedColor>},
    {0x3A, Command<Words<2>, NoData, SetGsmUartRx>},
    {0, nullptr},
};
static_assert(IsCommandTable(ExtendedCommandTable));
