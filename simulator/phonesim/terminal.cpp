#include "simulator/phonesim/terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>
#include <string_view>

#include "posix/raw_terminal.h"
#include "posix/whole_output.h"

namespace simulator {
namespace {

void SayTo(int descriptor, const std::string& text) {
  [[maybe_unused]] const ssize_t ignored = write(descriptor, text.data(), text.size());
}

// Returns false at the end of the source, or if `write` does.
bool Pass(int from, const std::function<bool(std::string_view)>& write) {
  char bytes[4096];
  const ssize_t size = read(from, bytes, sizeof bytes);
  if (size <= 0) return size < 0 && (errno == EINTR || errno == EAGAIN);
  return write({bytes, static_cast<size_t>(size)});
}

}  // namespace

void RelayTerminal(const posix::FileDescriptor& shell) {
  // The shell's own terminal does the line editing and the signals; ours only passes keys.
  const posix::RawTerminal raw(STDIN_FILENO);
  winsize window = {};
  if (ioctl(STDIN_FILENO, TIOCGWINSZ, &window) == 0) ioctl(shell.Get(), TIOCSWINSZ, &window);
  const auto to_shell = [&shell](std::string_view keys) {
    return posix::WriteAll(shell.Get(), keys).empty();
  };
  pollfd polled[] = {{shell.Get(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
  while (true) {
    if (poll(polled, 2, -1) < 0) continue;
    if (polled[0].revents != 0 && !Pass(shell.Get(), posix::WriteToOutput)) return;
    if (polled[1].revents != 0 && !Pass(STDIN_FILENO, to_shell)) {
      // The end of our input is the end-of-file key at the shell's terminal.
      SayTo(shell.Get(), "\004");
      polled[1].fd = -1;
    }
  }
}

}  // namespace simulator
