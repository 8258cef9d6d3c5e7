// What the phone's programs print: its newest part as it is, and line by line in the journal.
#pragma once

#include <mutex>
#include <string>

#include "posix/file_descriptor.h"
#include "simulator/phone/journal.h"
#include "simulator/phone/poll_loop.h"

namespace simulator {

class Console {
 public:
  Console(PollLoop& loop, Journal& journal, bool echo) : loop_(loop), journal_(journal), echo_(echo) {}

  // A descriptor for a program to print to; `source` ("stdout", "stderr") is its path in the journal.
  posix::FileDescriptor NewOutput(const std::string& source);
  // The newest part of what was printed to "stdout".
  std::string Text() const;

 private:
  void Take(const std::string& source, std::string_view bytes, std::string& line);

  PollLoop& loop_;
  Journal& journal_;
  bool echo_;
  mutable std::mutex mutex_;
  std::string text_;
};

}  // namespace simulator
