#include "base/shell.h"

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
  while (seconds != 0) seconds = sleep(seconds);
}
