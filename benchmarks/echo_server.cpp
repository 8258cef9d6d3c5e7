// The smallest program that answers on the phone's serial port: a number of bytes (4 by default) for every
// eight.
//   echo_server [ANSWER-SIZE]
#include <fcntl.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>

int main(int count, char** arguments) {
  static char answer[4096];
  const size_t size = count > 1 ? static_cast<size_t>(atoi(arguments[1])) : 4;
  const int port = open("/dev/usb/tts/0", O_RDWR);
  termios line = {};
  tcgetattr(port, &line);
  cfmakeraw(&line);
  line.c_cc[VMIN] = 8;
  tcsetattr(port, TCSANOW, &line);
  for (;;) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(port, &readable);
    char request[8];
    if (select(port + 1, &readable, nullptr, nullptr, nullptr) != 1) return 1;
    if (read(port, request, sizeof request) != sizeof request) return 1;
    if (write(port, answer, size) != static_cast<ssize_t>(size)) return 1;
  }
}
