#include "tests/phone/child_process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <thread>

namespace {

int StatusOf(pid_t process) {
  int status = 0;
  waitpid(process, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int InChild(const std::function<int()>& work) {
  fflush(stdout);
  const pid_t process = fork();
  if (process != 0) return StatusOf(process);
  try {
    _exit(work());
  } catch (const std::exception& failure) {
    fprintf(stderr, "%s\n", failure.what());
    _exit(99);
  }
}

WaitingChild StartChild(const std::function<std::string()>& work) {
  int ends[2];
  if (pipe(ends) != 0) return {};
  const pid_t process = fork();
  if (process == 0) {
    close(ends[0]);
    const std::string said = work();
    if (write(ends[1], said.data(), said.size()) < 0) _exit(1);
    close(ends[1]);
    while (true) pause();
  }
  close(ends[1]);
  WaitingChild child = {process, {}};
  char bytes[4096];
  ssize_t size;
  while ((size = read(ends[0], bytes, sizeof bytes)) > 0) child.said.append(bytes, static_cast<size_t>(size));
  close(ends[0]);
  return child;
}

bool Becomes(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}
