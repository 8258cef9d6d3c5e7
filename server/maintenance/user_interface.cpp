#include "server/maintenance/user_interface.h"

#include <unistd.h>

#include "server/base/shell.h"

void StopUserInterface() {
  RunShell("killall -9 Launcher.elf");
  RunShell("echo 0 > /proc/backlight/lcd");
  for (;;) pause();
}
