#include "tests/browser/line_under_test.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace browser {

namespace {

constexpr std::chrono::milliseconds PAUSE{50};

// Its output goes to the file.
pid_t Spawn(const std::vector<std::string>& words, const std::string& output) {
  std::vector<std::string> copies = words;
  std::vector<char*> arguments;
  for (std::string& word : copies) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                   0600);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  pid_t process = -1;
  const int error = posix_spawn(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot run " + words[0]);
  return process;
}

std::string Content(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

std::string AddressAfter(const std::string& text, const std::string& role) {
  const std::size_t at = text.find("http", text.find(role));
  const std::size_t end = text.find('\n', at);
  return at == std::string::npos || end == std::string::npos ? "" : text.substr(at, end - at);
}

}  // namespace

Folder::Folder() {
  std::string made = (std::filesystem::temp_directory_path() / "line-XXXXXX").string();
  if (mkdtemp(made.data()) == nullptr) throw std::runtime_error("cannot make a folder");
  path_ = made;
}

Folder::~Folder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string RunToEnd(const std::vector<std::string>& words) {
  const Folder folder;
  int status = 0;
  waitpid(Spawn(words, folder / "output"), &status, 0);
  const std::string output = Content(folder / "output");
  if (status != 0) throw std::runtime_error(words[0] + " failed: " + output);
  return output;
}

RunningPhone::RunningPhone(std::string name, const std::string& port) : name_(std::move(name)) {
  Do({"--no-waiting", "--link", port, "start"});
}

RunningPhone::~RunningPhone() {
  try {
    Do({"stop"});
  } catch (const std::exception&) {
    // A test has ended it.
  }
}

std::string RunningPhone::Do(std::vector<std::string> words) const {
  words.insert(words.begin(), {PHONESIM_PROGRAM, "--name", name_});
  return RunToEnd(words);
}

ServedLine::ServedLine(const std::vector<std::string>& ports, const std::vector<std::string>& options,
                       const std::string& log) {
  std::vector<std::string> words = {PHONETEST_PROGRAM};
  for (const std::string& port : ports) words.insert(words.end(), {"--port", port});
  words.push_back("serve");
  words.insert(words.end(), options.begin(), options.end());
  process_ = Spawn(words, log);
  while (manager_address_.empty()) {
    std::this_thread::sleep_for(PAUSE);
    const std::string text = Content(log);
    operator_address_ = AddressAfter(text, "operator:");
    manager_address_ = AddressAfter(text, "manager:");
    if (!manager_address_.empty() || waitpid(process_, nullptr, WNOHANG) == 0) continue;
    process_ = -1;
    throw std::runtime_error("the line does not start: " + text);
  }
}

ServedLine::~ServedLine() {
  if (process_ < 0) return;
  kill(process_, SIGTERM);
  waitpid(process_, nullptr, 0);
}

}  // namespace browser
