#include "tests/station/scripted_phone.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "station/commands/bytes.h"

namespace {

using station::Bytes;
using station::HexText;

// A turn that has not come by then will not come.
constexpr int PATIENCE_MILLISECONDS = 5000;

// Waits until the bytes are there or the play is over.
Bytes ReadExactly(int descriptor, std::size_t size, const std::atomic<bool>& over) {
  Bytes bytes;
  for (int waited = 0; bytes.size() < size && waited < PATIENCE_MILLISECONDS; waited += 10) {
    pollfd waiting{descriptor, POLLIN, 0};
    if (poll(&waiting, 1, 10) != 1 || (waiting.revents & POLLIN) == 0) {
      if (over) break;
      continue;
    }
    std::array<std::uint8_t, 4096> room;
    const ssize_t count = read(descriptor, room.data(), std::min(room.size(), size - bytes.size()));
    if (count > 0) bytes.insert(bytes.end(), room.begin(), room.begin() + count);
  }
  return bytes;
}

std::string ReadAll(std::FILE* file) {
  std::rewind(file);
  std::string text;
  std::array<char, 4096> room;
  for (std::size_t count = 0; (count = std::fread(room.data(), 1, room.size(), file)) > 0;) {
    text.append(room.data(), count);
  }
  std::fclose(file);
  return text;
}

}  // namespace

ScriptedPhone::ScriptedPhone(std::vector<Turn> script)
    : script_(std::move(script)), descriptor_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
  if (descriptor_ < 0 || grantpt(descriptor_) != 0 || unlockpt(descriptor_) != 0) {
    throw std::runtime_error("no pseudo-terminal");
  }
  port_ = ptsname(descriptor_);
  other_side_ = open(port_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  thread_ = std::thread([this] { Play(); });
}

ScriptedPhone::~ScriptedPhone() {
  Difference();
  close(other_side_);
  close(descriptor_);
}

void ScriptedPhone::Play() {
  for (std::size_t turn = 0; turn < script_.size(); ++turn) {
    const Bytes expected = station::BytesFromHex(script_[turn].expected);
    const Bytes came = ReadExactly(descriptor_, expected.size(), over_);
    if (came != expected) {
      difference_ =
          "turn " + std::to_string(turn) + ": expected " + HexText(expected) + ", came " + HexText(came);
      return;
    }
    std::this_thread::sleep_for(script_[turn].delay);
    if (script_[turn].before_answer) script_[turn].before_answer();
    const Bytes answer = station::BytesFromHex(script_[turn].answer);
    if (write(descriptor_, answer.data(), answer.size()) != static_cast<ssize_t>(answer.size())) {
      difference_ = "turn " + std::to_string(turn) + ": the answer was not taken";
      return;
    }
  }
  const Bytes behind = ReadExactly(descriptor_, 1, over_);
  if (!behind.empty()) difference_ = "came after the last turn: " + HexText(behind);
}

std::string ScriptedPhone::Difference() {
  over_ = true;
  if (thread_.joinable()) thread_.join();
  return difference_;
}

ToolResult RunTool(const std::vector<std::string>& arguments, const std::string& input) {
  std::vector<std::string> words = {PHONETEST_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return RunProgram(std::move(words), input);
}

ToolResult RunProgram(std::vector<std::string> words, const std::string& input) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  std::FILE* output = std::tmpfile();
  std::FILE* errors = std::tmpfile();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input.c_str(), O_RDONLY | O_NOCTTY, 0);
  posix_spawn_file_actions_adddup2(&actions, fileno(output), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(errors), STDERR_FILENO);
  pid_t child = 0;
  const int error = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot run " + words.front());
  int status = 0;
  waitpid(child, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status), ReadAll(output),
          ReadAll(errors)};
}

std::string Repeat(const std::string& byte, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) text += byte;
  return text;
}

std::string TemporaryFile(const std::string& name, const std::string& content) {
  // All of them go at the end of the tests.
  static const struct Folder {
    std::string path = testing::TempDir() + "phonetest-tests-" + std::to_string(getpid());
    ~Folder() {
      std::error_code error;
      std::filesystem::remove_all(path, error);
    }
  } folder;
  std::filesystem::create_directories(folder.path);
  const std::string path = folder.path + "/" + name;
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
