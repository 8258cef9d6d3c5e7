#include "simulator/phonesim/background.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

#include "posix/file_descriptor.h"

namespace simulator {
namespace {

void SayTo(int descriptor, const std::string& text) {
  [[maybe_unused]] const ssize_t ignored = write(descriptor, text.data(), text.size());
}

void LeaveTerminal() {
  const posix::FileDescriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  for (int number = 0; number < 3; ++number) dup2(nothing.Get(), number);
}

}  // namespace

int RunInBackground(const std::function<void(const std::function<void(const std::string&)>& ready)>& work) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe can be made");
  posix::FileDescriptor reading(ends[0]);
  posix::FileDescriptor writing(ends[1]);
  const pid_t process = fork();
  if (process < 0) throw std::runtime_error("no process can be made");
  if (process == 0) {
    setsid();
    try {
      work([&writing](const std::string& text) {
        SayTo(writing.Get(), "+" + text);
        writing.Reset();
        LeaveTerminal();
      });
    } catch (const std::exception& failure) {
      SayTo(writing.Get(), fmt::format("-phonesim: {}\n", failure.what()));
      _exit(1);
    }
    _exit(0);
  }
  writing.Reset();
  std::string text;
  char bytes[4096];
  ssize_t size;
  while ((size = read(reading.Get(), bytes, sizeof bytes)) > 0) text.append(bytes, static_cast<size_t>(size));
  const bool ready = text.starts_with('+');
  fmt::print(ready ? stdout : stderr, "{}",
             text.empty() ? "phonesim: the phone ended while it started\n" : text.substr(1));
  return ready ? 0 : 1;
}

}  // namespace simulator
