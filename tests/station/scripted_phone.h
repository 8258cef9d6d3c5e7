// The other end of the link for tests of the station tool: a port that plays a phone by a script, a terminal
// with someone at it, and a way to run the real tool against both.
#pragma once

#include <termios.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "posix/file_descriptor.h"

// One command as the phone sees it: exactly these bytes come, then these are sent back.
struct Turn {
  std::string expected;  // hexadecimal
  std::string answer;    // hexadecimal; may be empty
  std::chrono::milliseconds delay{0};
  std::function<void()> before_answer = {};
  bool hangs_up = false;  // the phone's end is closed after the answer
};

inline const std::string ZERO = "00000000";  // a word
inline const std::string PING_REQUEST = ZERO + ZERO;
inline const Turn PING = {PING_REQUEST, "01000000"};
inline const std::string PING_PLAN = R"({"steps": [{"command": "ping"}]})";

inline bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class ScriptedPhone {
 public:
  enum class Kind { SerialPort, TcpPort };

  explicit ScriptedPhone(std::vector<Turn> script, Kind kind = Kind::SerialPort);
  ~ScriptedPhone();

  const std::string& Port() const {
    return port_;
  }

  // Ends the play and returns how it differed from the script: empty if every turn came exactly as expected
  // and nothing else came.
  std::string Difference();

 private:
  void Play();

  std::vector<Turn> script_;
  posix::FileDescriptor descriptor_;
  posix::FileDescriptor other_side_;  // kept open, so that a tool that closes the port does not hang it up
  posix::FileDescriptor listener_;
  std::string port_;
  std::atomic<bool> over_ = false;
  std::string difference_;
  std::thread thread_;
};

// A pseudo-terminal for standard input.
class Terminal {
 public:
  Terminal();

  const std::string& Path() const {
    return path_;
  }

  void Type(const std::string& text) const;

  // Types without a pause for as long; what is not taken is lost.
  void Flood(std::chrono::milliseconds time) const;

  termios Settings() const;

  // Whether the program at it takes every key as it is typed.
  bool IsRaw() const {
    return (Settings().c_lflag & ICANON) == 0;
  }

 private:
  std::string path_;
  posix::FileDescriptor keyboard_;
  posix::FileDescriptor other_side_;
};

struct ToolResult {
  int status = -1;
  std::string output = {};
  std::string errors = {};
  std::chrono::duration<double> took{0};
};

// Called again and again while a program runs, with its output so far.
using Watch = std::function<void(const ToolResult& so_far)>;

// Runs phonetest to its end, with the named file as standard input.
ToolResult RunTool(const std::vector<std::string>& arguments, const std::string& input = "/dev/null",
                   const Watch& watch = {});

// The same for any program, searched for in PATH.
ToolResult RunProgram(std::vector<std::string> words, const std::string& input = "/dev/null",
                      const Watch& watch = {});

// `size` bytes as hexadecimal, all the same.
std::string Repeat(const std::string& byte, std::size_t size);

// A grey JPEG file in hexadecimal, its sides multiples of 8, with `padding` bytes of comment.
std::string GreyJpeg(std::size_t width, std::size_t height, std::size_t padding = 0);

// A folder of this process's own, removed at the end of the tests.
const std::string& TemporaryFolder();

// Writes the content to a file in that folder and returns its path.
std::string TemporaryFile(const std::string& name, const std::string& content);

std::string ReadFile(const std::string& path);
