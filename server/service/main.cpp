// Entry of phonetestd: prepares the process and chooses the run mode.
//   phonetestd           serves test commands on the USB serial gadget until the phone is switched off
//   phonetestd -g        relays between the host and the modem's data port
//   phonetestd -c 0|1    issues one modem control request
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include "protocol/result_codes.h"
#include "server/base/device.h"
#include "server/channel/channel.h"
#include "server/channel/usb_gadget.h"
#include "server/devices/audio.h"
#include "server/devices/display.h"
#include "server/modem/control.h"
#include "server/modem/pass_through.h"
#include "server/service/dispatcher.h"

constexpr unsigned long GPIO_SERVICE_START = 0x40044F3B;

// Prepares the phone for the server mode (GPIO, USB gadget, standby, black screen) and opens the command
// channel. Returns 0, or -9993 if the channel cannot be opened, without the steps after it: the process then
// ends, and init may start it again. All other failures are ignored: what works can still be tested.
static int32_t ServiceStartup(int32_t /*unused*/) {
  IssueGpioRequest(GPIO_SERVICE_START);
  AudioGpioLineAOff();
  ReloadUsbGadget();
  if (SetChannelOpen(1) < 0) return HOST_PORT_NOT_OPENED;
  StandbyHold = ProhibitStandby();
  DisplayTest(0, 0, 0);
  return SUCCESS;
}

// No device may get descriptor 0, 1 or 2: the modem routines take a descriptor below 1 for "not ready", and
// console output would go to a device.
static void ReserveStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) < 0) open("/dev/null", O_RDWR);
  }
}

static void IgnoreSignal(int /*signal*/) {}

// The host port may become the controlling terminal, and its hang-up must not end the server. A write to a
// pipe without a reader must not end it either. These are handlers, not SIG_IGN, so that programs started
// through the shell have the defaults.
static void SurviveHangUp() {
  struct sigaction action = {};
  action.sa_handler = IgnoreSignal;
  action.sa_flags = SA_RESTART;
  sigaction(SIGHUP, &action, nullptr);
  sigaction(SIGPIPE, &action, nullptr);
}

int main(int argument_count, char** arguments) {
  ReserveStandardDescriptors();
  SurviveHangUp();
  setvbuf(stdout, nullptr, _IOLBF, 0);  // no message is lost if the server is killed

  if (argument_count == 2 && strcmp(arguments[1], "-g") == 0) {
    RunModemPassThrough(1);
    return 0;
  }
  if (argument_count == 3 && strcmp(arguments[1], "-c") == 0) {
    ModemControl(arguments[2]);
    return 0;
  }
  const int32_t started = ServiceStartup(1);
  if (started < 0) return started;
  CommandLoop(1);
}
