#include "posix/background.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

#include "posix/file_descriptor.h"
#include "posix/whole_output.h"

namespace posix {
namespace {

void SayTo(int descriptor, const std::string& text) {
  [[maybe_unused]] const ssize_t ignored = write(descriptor, text.data(), text.size());
}

void LeaveTerminal() {
  const posix::FileDescriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  for (int number = 0; number < 3; ++number) dup2(nothing.Get(), number);
}

// What the work's process tells the one that waits for it, with a text after it.
constexpr char READY = '+';
constexpr char FAILED = '-';
constexpr char LOST_OUTPUT = '!';  // which it has told already

}  // namespace

int RunInBackground(const std::string& program, const BackgroundWork& work) {
  Connection pipe = MakePipe();
  if (!pipe) ThrowErrno("pipe");
  const pid_t process = fork();
  if (process < 0) ThrowErrno("fork");
  if (process == 0) {
    setsid();
    try {
      work([&pipe](const std::string& text) {
        SayTo(pipe.writing.Get(), READY + text);
        pipe.writing.Reset();
        LeaveTerminal();
      });
    } catch (const OutputLost& lost) {
      TellLostOutput(lost.what());
      SayTo(pipe.writing.Get(), {LOST_OUTPUT});
      _exit(OUTPUT_LOST_STATUS);
    } catch (const std::exception& failure) {
      SayTo(pipe.writing.Get(), fmt::format("{}{}: {}\n", FAILED, program, failure.what()));
      _exit(1);
    }
    _exit(0);
  }
  pipe.writing.Reset();
  std::string text;
  char bytes[4096];
  ssize_t size;
  while ((size = read(pipe.reading.Get(), bytes, sizeof bytes)) > 0) {
    text.append(bytes, static_cast<size_t>(size));
  }
  if (text.empty()) text = fmt::format("{}{}: it ended while it started\n", FAILED, program);
  const char said = text[0];
  text.erase(0, 1);
  if (said == LOST_OUTPUT) return OUTPUT_LOST_STATUS;
  if (said == READY) PrintText(text);
  if (said == FAILED) fmt::print(stderr, "{}", text);
  return said == READY ? 0 : 1;
}

}  // namespace posix
