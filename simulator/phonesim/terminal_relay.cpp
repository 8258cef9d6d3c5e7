#include "simulator/phonesim/terminal_relay.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

namespace simulator {
namespace {

// The shell's own terminal does the line editing and the signals; ours only passes keys.
class RawTerminal {
 public:
  RawTerminal() : is_terminal_(tcgetattr(STDIN_FILENO, &before_) == 0) {
    if (!is_terminal_) return;
    termios raw = before_;
    cfmakeraw(&raw);
    tcsetattr(STDIN_FILENO, TCSADRAIN, &raw);
  }
  ~RawTerminal() {
    if (is_terminal_) tcsetattr(STDIN_FILENO, TCSADRAIN, &before_);
  }
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;

 private:
  termios before_ = {};
  bool is_terminal_;
};

// False at the end of the source.
bool Pass(int from, int to) {
  char bytes[4096];
  const ssize_t size = read(from, bytes, sizeof bytes);
  if (size <= 0) return size < 0 && (errno == EINTR || errno == EAGAIN);
  for (ssize_t done = 0; done < size;) {
    const ssize_t written = write(to, bytes + done, static_cast<size_t>(size - done));
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) done += written;
  }
  return true;
}

}  // namespace

void RelayTerminal(const posix::FileDescriptor& shell) {
  const RawTerminal raw;
  winsize window = {};
  if (ioctl(STDIN_FILENO, TIOCGWINSZ, &window) == 0) ioctl(shell.Get(), TIOCSWINSZ, &window);
  pollfd polled[] = {{shell.Get(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
  while (true) {
    if (poll(polled, 2, -1) < 0) continue;
    if (polled[0].revents != 0 && !Pass(shell.Get(), STDOUT_FILENO)) return;
    if (polled[1].revents != 0 && !Pass(STDIN_FILENO, shell.Get())) {
      // The end of our input is the end-of-file key at the shell's terminal.
      [[maybe_unused]] const ssize_t ignored = write(shell.Get(), "\004", 1);
      polled[1].fd = -1;
    }
  }
}

}  // namespace simulator
