#include "server/maintenance/shutdown.h"

#include <unistd.h>

#include <cstdlib>

#include "server/base/device.h"
#include "server/base/shell.h"
#include "server/base/wait.h"
#include "server/channel/channel.h"

constexpr unsigned long GPIO_POWER_OFF = 0x40044F3E;

void PowerOff() {
  SleepSeconds(1);
  SetChannelOpen(0);
  IssueGpioRequest(GPIO_POWER_OFF);
  RunShell("/sbin/poweroff");
  exit(EXIT_SUCCESS);
}

void StopUserInterface() {
  RunShell("killall -9 Launcher.elf");
  RunShell("echo 0 > /proc/backlight/lcd");
  for (;;) pause();
}
