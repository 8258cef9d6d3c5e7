// Runs, instead of the server, one of the maintenance routines that no command reaches with these arguments,
// and prints its result: touch-sound MODE, key-sound ON, charger-sound ON, reset-clock, versions.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "server/maintenance/clock.h"
#include "server/maintenance/configuration.h"

namespace {

int ShowVersions() {
  char version[3][VERSION_LENGTH + 1] = {};
  const int result = ReadVersions(version[0], version[1], version[2]);
  printf("%s %s %s\n", version[0], version[1], version[2]);
  return result + ReadVersions(nullptr, nullptr, nullptr);
}

int Run(const char* routine, int argument) {
  if (strcmp(routine, "touch-sound") == 0) return SetTouchSound(argument);
  if (strcmp(routine, "key-sound") == 0) return SetKeySound(argument);
  if (strcmp(routine, "charger-sound") == 0) return SetChargerSound(argument);
  if (strcmp(routine, "reset-clock") == 0) return ResetClock();
  if (strcmp(routine, "versions") == 0) return ShowVersions();
  return -1;
}

}  // namespace

int main(int count, char** arguments) {
  printf("%d\n", Run(count > 1 ? arguments[1] : "", count > 2 ? atoi(arguments[2]) : 0));
}
