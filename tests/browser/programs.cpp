#include "tests/browser/programs.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace browser {

namespace {

pid_t Start(const std::vector<std::string>& words, posix::FileDescriptor& output) {
  posix::Connection pipe = posix::MakePipe();
  std::vector<std::string> copies = words;
  std::vector<char*> arguments;
  for (std::string& word : copies) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const pid_t process = fork();
  if (process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(pipe.writing.Get(), STDOUT_FILENO);
    dup2(pipe.writing.Get(), STDERR_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  output = std::move(pipe.reading);
  return process;
}

// Returns false at the output's end.
bool ReadSome(const posix::FileDescriptor& output, std::string& text) {
  char bytes[4096];
  const ssize_t size = read(output.Get(), bytes, sizeof bytes);
  if (size <= 0) return false;
  text.append(bytes, static_cast<size_t>(size));
  return true;
}

int StatusOf(pid_t process) {
  int status = 0;
  waitpid(process, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

Finished RunProgram(const std::vector<std::string>& words) {
  posix::FileDescriptor output;
  const pid_t process = Start(words, output);
  std::string text;
  while (ReadSome(output, text)) continue;
  return {StatusOf(process), std::move(text)};
}

RunningProgram::RunningProgram(const std::vector<std::string>& words) : process_(Start(words, output_)) {}

RunningProgram::~RunningProgram() {
  if (process_ == 0) return;
  kill(process_, SIGTERM);
  Wait();
}

std::string RunningProgram::AwaitLine(const std::string& beginning) {
  while (true) {
    for (size_t start = 0, end; (end = printed_.find('\n', start)) != std::string::npos; start = end + 1) {
      if (printed_.compare(start, beginning.size(), beginning) != 0) continue;
      return printed_.substr(start + beginning.size(), end - start - beginning.size());
    }
    if (!ReadSome(output_, printed_)) throw std::runtime_error("it ended without a line: " + printed_);
  }
}

int RunningProgram::Wait() {
  return StatusOf(std::exchange(process_, 0));
}

}  // namespace browser
