#include "server/base/shell.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

int RunShell(const char* format, ...) {
  char command[256];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(command, sizeof command, format, arguments);
  va_end(arguments);
  return system(command);
}

void SleepSeconds(unsigned seconds) {
  // In steps that a 32-bit time takes: the host may ask for any number.
  constexpr unsigned LONGEST = 0x7FFFFFFF;
  while (seconds != 0) {
    const unsigned step = seconds < LONGEST ? seconds : LONGEST;
    seconds -= step - sleep(step);
  }
}
