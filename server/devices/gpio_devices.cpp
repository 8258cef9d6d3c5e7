#include "server/devices/gpio_devices.h"

#include "protocol/result_codes.h"
#include "server/base/shell.h"

int32_t MotorSet(int32_t on) {
  RunShell("echo %d > /proc/gpio/motor", on != 0 ? 1 : 0);
  return SUCCESS;
}

int32_t LedSetColor(int32_t color) {
  // Every change starts from the same state: not forced off, timing word 519. These two have two blanks after
  // the sign on purpose: production scripts compare the command lines.
  RunShell("echo 0 >  /proc/cLED_wlpg/force_led_off");
  RunShell("echo 519 >  /proc/cLED_wlpg/timing");
  RunShell("echo %d > /proc/cLED_wlpg/color", static_cast<int>(color));
  return SUCCESS;
}

int32_t GsmUartRxSet(int32_t level) {
  RunShell("echo %d > /proc/gpio/gsm_uart_rx", static_cast<int>(level));
  return SUCCESS;
}
