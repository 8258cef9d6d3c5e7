#include "server/channel/usb_gadget.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "server/base/shell.h"

int32_t StandbyHold = 0;

void ReloadUsbGadget() {
  fflush(stdout);
  RunShell("ifconfig usbl0 down");
  RunShell("rmmod omap_bi");
  RunShell("rmmod net_fd");
  RunShell("rmmod serial_fd");
  RunShell("rmmod usbdcore");
  RunShell("insmod usbdcore.o");
  RunShell("insmod serial_fd.o");
  RunShell("insmod omap_bi.o");
  fflush(stdout);
}

int32_t ProhibitStandby() {
  // Held for the whole run. Close-on-exec keeps it from the programs that the server starts.
  return open("/proc/vantu_pm/prohibit_standby", O_RDWR | O_CLOEXEC);
}

void AllowStandby(int32_t hold) {
  close(hold);
}
