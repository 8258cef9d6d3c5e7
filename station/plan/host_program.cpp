#include "station/plan/host_program.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>
#include <utility>

#include "station/commands/errors.h"
#include "station/link/interruption.h"
#include "station/link/link.h"

namespace station {

namespace {

// More output than about this is read and dropped.
constexpr std::size_t LONGEST_OUTPUT = 64 * 1024;

std::string Ended(const std::string& output, int status) {
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return "";
  const std::string how = WIFEXITED(status) ? fmt::format("it ended with exit status {}", WEXITSTATUS(status))
                                            : fmt::format("it was ended by signal {}", WTERMSIG(status));
  return output.empty() ? how : how + ": " + output;
}

// What the program prints goes into the record, so it does not get the password of the results' database.
std::vector<char*> Environment() {
  std::vector<char*> kept;
  for (char** one = environ; *one != nullptr; ++one) {
    if (!std::string_view(*one).starts_with("PGPASSWORD=")) kept.push_back(*one);
  }
  kept.push_back(nullptr);
  return kept;
}

pid_t Start(const std::vector<std::string>& words, int output) {
  std::vector<std::string> copies = words;
  std::vector<char*> arguments;
  for (std::string& word : copies) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const std::vector<char*> environment = Environment();
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
  BeginProgramStart();
  const int error =
      posix_spawnp(&process, arguments[0], &actions, &attributes, arguments.data(), environment.data());
  EndProgramStart(error == 0 ? process : -1);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw PlanError(fmt::format("cannot run {}: {}", words.front(), std::strerror(error)));
  return process;
}

}  // namespace

HostProgram::HostProgram(const std::vector<std::string>& words) {
  posix::Connection output = posix::MakePipe();
  if (!output) throw PlanError(fmt::format("cannot run {}: {}", words.front(), std::strerror(errno)));
  process_ = Start(words, output.writing.Get());
  descriptor_ = std::move(output.reading);
}

HostProgram::HostProgram(HostProgram&& other) noexcept
    : process_(std::exchange(other.process_, -1)),
      descriptor_(std::move(other.descriptor_)),
      output_(std::move(other.output_)),
      wait_status_(other.wait_status_) {}

HostProgram::~HostProgram() {
  Kill();
}

void HostProgram::Kill() {
  if (process_ <= 0) return;
  kill(-process_, SIGKILL);
  RemoveProgramGroup(process_);
  waitpid(process_, nullptr, 0);
  process_ = -1;
}

bool HostProgram::ReadSome(std::chrono::milliseconds limit) {
  pollfd waiting{descriptor_.Get(), POLLIN, 0};
  if (poll(&waiting, 1, static_cast<int>(limit.count())) != 1) return false;
  std::array<char, 4096> room;
  const ssize_t count = read(descriptor_.Get(), room.data(), room.size());
  if (count <= 0) {
    descriptor_.Reset();
    return false;
  }
  if (output_.size() < LONGEST_OUTPUT) output_.append(room.data(), static_cast<std::size_t>(count));
  return true;
}

std::string HostProgram::AwaitLine(std::chrono::milliseconds limit) {
  const Clock::time_point end = Clock::now() + limit;
  while (output_.find('\n') == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0 || !ReadSome(left)) return "";
  }
  return output_.substr(0, output_.find('\n'));
}

std::string HostProgram::Wait(std::chrono::milliseconds limit) {
  constexpr std::chrono::milliseconds LOOK{20};
  const Clock::time_point end = Clock::now() + limit;
  for (;;) {
    // A program that it started may keep the output open after its end and write on, and it may close its
    // output before its end.
    int status = 0;
    if (waitpid(process_, &status, WNOHANG) == process_) {
      RemoveProgramGroup(process_);
      process_ = -1;
      wait_status_ = status;
      while (output_.size() < LONGEST_OUTPUT && ReadSome(std::chrono::milliseconds(0))) {
      }
      while (output_.ends_with('\n')) output_.pop_back();
      return Ended(output_, status);
    }
    if (Interrupted()) {
      Kill();
      throw Aborted();
    }
    if (Clock::now() >= end) {
      Kill();
      return fmt::format("it was still running after {} s", static_cast<double>(limit.count()) / 1000);
    }
    ReadSome(LOOK);
  }
}

}  // namespace station
