// A terminal in raw mode, as long as the object lives: every key is passed on as it is, without echo, line
// editing or signals. A descriptor that is not a terminal is left alone.
#pragma once

#include <termios.h>

namespace posix {

class RawTerminal {
 public:
  // `when` as tcsetattr takes it.
  explicit RawTerminal(int descriptor, int when = TCSADRAIN)
      : descriptor_(descriptor), when_(when), is_terminal_(tcgetattr(descriptor, &before_) == 0) {
    if (!is_terminal_) return;
    termios raw = before_;
    cfmakeraw(&raw);
    tcsetattr(descriptor_, when_, &raw);
  }
  ~RawTerminal() {
    if (is_terminal_) tcsetattr(descriptor_, when_, &before_);
  }
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;

  bool IsTerminal() const {
    return is_terminal_;
  }
  // The settings to which the terminal goes back.
  const termios& Before() const {
    return before_;
  }

 private:
  int descriptor_;
  int when_;
  termios before_ = {};
  bool is_terminal_;
};

}  // namespace posix
