#include "simulator/phonesim/terminal.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>

#include "posix/raw_terminal.h"
#include "posix/whole_output.h"

namespace simulator {
namespace {

void SayTo(int descriptor, const std::string& text) {
  [[maybe_unused]] const ssize_t ignored = write(descriptor, text.data(), text.size());
}

// Returns false at the end of the source.
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
  // The shell's own terminal does the line editing and the signals; ours only passes keys.
  const posix::RawTerminal raw(STDIN_FILENO);
  winsize window = {};
  if (ioctl(STDIN_FILENO, TIOCGWINSZ, &window) == 0) ioctl(shell.Get(), TIOCSWINSZ, &window);
  pollfd polled[] = {{shell.Get(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
  while (true) {
    if (poll(polled, 2, -1) < 0) continue;
    if (polled[0].revents != 0 && !Pass(shell.Get(), STDOUT_FILENO)) return;
    if (polled[1].revents != 0 && !Pass(STDIN_FILENO, shell.Get())) {
      // The end of our input is the end-of-file key at the shell's terminal.
      SayTo(shell.Get(), "\004");
      polled[1].fd = -1;
    }
  }
}

}  // namespace simulator
