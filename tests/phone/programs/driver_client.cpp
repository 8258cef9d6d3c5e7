// Runs instead of the server: opens a device for reading and writing (or for writing alone, with "w:" before
// the path) and makes driver requests on it. The arguments are the path, then each request's number and its
// bytes as hexadecimal text. Prints 0, or the error's name, for each. Instead, with "until" and a number of
// seconds, sleeps until the clock has moved on by so many.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

void Say(bool good) {
  printf("%s ", good ? "0" : strerrorname_np(errno));
}

}  // namespace

int main(int count, char** arguments) {
  if (strcmp(arguments[1], "until") == 0) {
    timespec moment = {};
    clock_gettime(CLOCK_MONOTONIC, &moment);
    moment.tv_sec += strtol(arguments[2], nullptr, 10);
    return clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &moment, nullptr);
  }
  const bool writes_only = strncmp(arguments[1], "w:", 2) == 0;
  const int device = open(arguments[1] + (writes_only ? 2 : 0), writes_only ? O_WRONLY : O_RDWR);
  if (device < 0) Say(false);
  for (int index = 2; device >= 0 && index + 1 < count; index += 2) {
    uint8_t bytes[256] = {};
    const char* text = arguments[index + 1];
    for (size_t place = 0; text[2 * place] != '\0'; ++place) {
      const char digits[] = {text[2 * place], text[2 * place + 1], '\0'};
      bytes[place] = static_cast<uint8_t>(strtoul(digits, nullptr, 16));
    }
    Say(ioctl(device, strtoul(arguments[index], nullptr, 16), bytes) >= 0);
  }
}
