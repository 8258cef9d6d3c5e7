#include "server/devices/audio_gpio.h"

#include "protocol/result_codes.h"
#include "server/base/gpio.h"

constexpr unsigned long GPIO_AUDIO_LINE_A_ON = 0x40044F28;
constexpr unsigned long GPIO_AUDIO_LINE_A_OFF = 0x40044F29;
constexpr unsigned long GPIO_AUDIO_LINE_B_ON = 0x40044F32;
constexpr unsigned long GPIO_AUDIO_LINE_B_OFF = 0x40044F33;

static int32_t SwitchLine(unsigned long request) {
  IssueGpioRequest(request);
  return SUCCESS;
}

int32_t AudioGpioLineAOn() {
  return SwitchLine(GPIO_AUDIO_LINE_A_ON);
}

int32_t AudioGpioLineAOff() {
  return SwitchLine(GPIO_AUDIO_LINE_A_OFF);
}

int32_t AudioGpioLineBOn() {
  return SwitchLine(GPIO_AUDIO_LINE_B_ON);
}

int32_t AudioGpioLineBOff() {
  return SwitchLine(GPIO_AUDIO_LINE_B_OFF);
}
