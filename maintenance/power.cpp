#include "maintenance/power.h"

#include <cstdlib>

#include "base/gpio.h"
#include "base/shell.h"
#include "service/channel.h"

constexpr unsigned long GPIO_POWER_OFF = 0x40044F3E;

void PowerOff() {
  SleepSeconds(1);
  SetChannelOpen(0);
  IssueGpioRequest(GPIO_POWER_OFF);
  RunShell("/sbin/poweroff");
  exit(EXIT_SUCCESS);
}
