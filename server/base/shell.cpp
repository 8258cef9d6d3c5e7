#include "server/base/shell.h"

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
