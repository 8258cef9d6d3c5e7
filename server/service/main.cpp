// Entry of phonetestd: prepares the process and chooses the run mode.
//   phonetestd           serves test commands on the USB serial gadget, for ever
//   phonetestd -g        relays between the host and the modem's data port
//   phonetestd -c 0|1    issues one modem control request
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include "server/modem/control.h"
#include "server/modem/pass_through.h"
#include "server/service/dispatcher.h"
#include "server/service/startup.h"

// A device must never get descriptor 0, 1 or 2: the modem routines take a descriptor below 1 for "not ready",
// and console output would go to a device.
static void ReserveStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) < 0) open("/dev/null", O_RDWR);
  }
}

static void IgnoreSignal(int /*signal*/) {}

// The host port may become the controlling terminal, and its hang-up must not end the server; nor must a
// write to something that nobody reads. Handlers, not SIG_IGN: programs started through the shell get the
// defaults back.
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
  setvbuf(stdout, nullptr, _IOLBF, 0);  // a message must not be lost when the server is killed

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
