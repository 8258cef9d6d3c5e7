// The other end of the link for tests of the station tool: a pseudo-terminal that plays a phone by a script,
// and a way to run the real tool against it.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// One command as the phone sees it: exactly these bytes come, then these go back.
struct Turn {
  std::string expected;  // hexadecimal
  std::string answer;    // hexadecimal; may be empty
  std::chrono::milliseconds delay{0};
  std::function<void()> before_answer = {};
};

class ScriptedPhone {
 public:
  explicit ScriptedPhone(std::vector<Turn> script);
  ~ScriptedPhone();

  const std::string& Port() const {
    return port_;
  }

  // Ends the play and tells how it differed from the script: empty when every turn came exactly as expected
  // and nothing else did.
  std::string Difference();

 private:
  void Play();

  std::vector<Turn> script_;
  int descriptor_;
  int other_side_ = -1;  // held open, so that a tool that closes the port is no hang-up
  std::string port_;
  std::atomic<bool> over_ = false;
  std::string difference_;
  std::thread thread_;
};

struct ToolResult {
  int status;
  std::string output;
  std::string errors;
};

// Runs phonetest to its end, with the named file as standard input.
ToolResult RunTool(const std::vector<std::string>& arguments, const std::string& input = "/dev/null");

// The same for any program, searched for in PATH.
ToolResult RunProgram(std::vector<std::string> words, const std::string& input = "/dev/null");

// `size` bytes as hexadecimal, all the same.
std::string Repeat(const std::string& byte, std::size_t size);

// Writes the content to a file of its own below the tests' folder and returns its path.
std::string TemporaryFile(const std::string& name, const std::string& content);

std::string ReadFile(const std::string& path);
