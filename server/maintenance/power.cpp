#include "server/maintenance/power.h"

#include <cstdlib>

#include "server/base/gpio.h"
#include "server/base/shell.h"
#include "server/channel/channel.h"

constexpr unsigned long GPIO_POWER_OFF = 0x40044F3E;

void PowerOff() {
  SleepSeconds(1);
  SetChannelOpen(0);
  IssueGpioRequest(GPIO_POWER_OFF);
  RunShell("/sbin/poweroff");
  exit(EXIT_SUCCESS);
}
