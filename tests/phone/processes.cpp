#include "tests/phone/processes.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;

namespace {

int ExitStatusOf(pid_t process) {
  int status = 0;
  waitpid(process, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// The thread that the thread sanitizer keeps for itself blocks nearly every signal, but not the one by which
// the C library changes the user of all threads. A thread of the server blocks nothing, or really everything
// while the C library creates or ends it.
bool IsTheSanitizers(uint64_t blocked_signals) {
  constexpr uint64_t CHANGE_OF_USER = uint64_t{1} << 32;  // signal 33
  return blocked_signals != 0 && (blocked_signals & CHANGE_OF_USER) == 0;
}

}  // namespace

bool Eventually(const std::function<bool()>& condition, std::chrono::milliseconds time_out) {
  const auto deadline = std::chrono::steady_clock::now() + time_out;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

int InChild(const std::function<int()>& work) {
  fflush(stdout);
  const pid_t process = fork();
  if (process != 0) return ExitStatusOf(process);
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

Holdings HoldingsOf(pid_t number) {
  Holdings holdings;
  const std::string process = "/proc/" + std::to_string(number);
  for (const auto& entry : fs::directory_iterator(process + "/fd")) {
    std::error_code gone;
    holdings.files.insert(fs::read_symlink(entry, gone).string());
  }
  for (const auto& task : fs::directory_iterator(process + "/task")) {
    ++holdings.threads;
    std::ifstream children(task.path() / "children");
    for (pid_t child = 0; children >> child;) ++holdings.children;
  }
  return holdings;
}

std::multiset<std::pair<dev_t, ino_t>> OpenObjects(pid_t process) {
  std::multiset<std::pair<dev_t, ino_t>> objects;
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(process) + "/fd")) {
    struct stat status;
    const bool standard = std::stoi(entry.path().filename()) <= 2;
    if (!standard && stat(entry.path().c_str(), &status) == 0) objects.emplace(status.st_dev, status.st_ino);
  }
  return objects;
}

size_t OpenDescriptors(pid_t process) {
  return OpenObjects(process).size();
}

size_t Threads(pid_t process) {
  size_t count = 0;
  for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    const std::string label = "SigBlk:";
    std::ifstream status(task.path() / "status");
    std::string line;
    while (std::getline(status, line) && !line.starts_with(label)) continue;
    // Without that line the thread has just ended.
    if (line.starts_with(label) && !IsTheSanitizers(std::stoull(line.substr(label.size()), nullptr, 16)))
      ++count;
  }
  return count;
}

bool ComesToThreads(pid_t process, size_t count) {
  return Eventually([=] { return Threads(process) == count; });
}
