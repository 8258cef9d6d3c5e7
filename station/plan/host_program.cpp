#include "station/plan/host_program.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <utility>

#include "station/commands/errors.h"
#include "station/link/link.h"

namespace station {

namespace {

// Output beyond this size is read and dropped.
constexpr std::size_t LONGEST_OUTPUT = 64 * 1024;

std::string Ended(const std::string& output, int status) {
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return "";
  const std::string how = WIFEXITED(status) ? fmt::format("it ended with exit status {}", WEXITSTATUS(status))
                                            : fmt::format("it was ended by signal {}", WTERMSIG(status));
  return output.empty() ? how : how + ": " + output;
}

pid_t Start(const std::vector<std::string>& words, int output) {
  std::vector<std::string> copies = words;
  std::vector<char*> arguments;
  for (std::string& word : copies) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  // A process group of its own, so that it can be ended together with the programs that it starts.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  pid_t process = -1;
  const int error = posix_spawnp(&process, arguments[0], &actions, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw PlanError(fmt::format("cannot run {}: {}", words.front(), std::strerror(error)));
  return process;
}

}  // namespace

HostProgram::HostProgram(const std::vector<std::string>& words) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw PlanError(fmt::format("cannot run {}", words.front()));
  descriptor_ = ends[0];
  try {
    process_ = Start(words, ends[1]);
  } catch (...) {
    close(ends[0]);
    close(ends[1]);
    throw;
  }
  close(ends[1]);
}

HostProgram::HostProgram(HostProgram&& other) noexcept
    : process_(std::exchange(other.process_, -1)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      output_(std::move(other.output_)) {}

HostProgram::~HostProgram() {
  Finish(SIGKILL);
}

void HostProgram::Finish(int signal) {
  if (process_ > 0) {
    kill(-process_, signal);
    waitpid(process_, nullptr, 0);
  }
  if (descriptor_ >= 0) close(descriptor_);
  process_ = descriptor_ = -1;
}

std::string HostProgram::Wait(std::chrono::milliseconds limit) {
  constexpr int LOOK_MILLISECONDS = 20;
  const Clock::time_point end = Clock::now() + limit;
  bool open = true;
  for (;;) {
    // A program that it started may keep the output open after its end, and it may close its output before
    // its end.
    int status = 0;
    const bool ended = waitpid(process_, &status, WNOHANG) == process_;
    pollfd waiting{open ? descriptor_ : -1, POLLIN, 0};
    while (poll(&waiting, 1, ended ? 0 : LOOK_MILLISECONDS) == 1) {
      std::array<char, 4096> room;
      const ssize_t count = read(descriptor_, room.data(), room.size());
      open = count > 0;
      if (!open) break;
      if (output_.size() < LONGEST_OUTPUT) output_.append(room.data(), static_cast<std::size_t>(count));
    }
    if (ended) {
      process_ = -1;
      while (output_.ends_with('\n')) output_.pop_back();
      return Ended(output_, status);
    }
    if (Clock::now() >= end) {
      Finish(SIGKILL);
      return fmt::format("it was still running after {} s", limit.count() / 1000);
    }
    if (!open) usleep(LOOK_MILLISECONDS * 1000);
  }
}

}  // namespace station
