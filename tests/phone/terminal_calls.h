// What the server does to the line settings of its terminals, call by call: the phone does not see these
// requests, since they go to the PC's own terminals.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "tests/phone/call_tracer.h"

class TerminalCalls {
 public:
  // From now on, until this goes.
  explicit TerminalCalls(pid_t server);

  // Of the terminal of this path: "set" (TCSETS, at once), "flush N" and "flags N" with their arguments.
  std::vector<std::string> Of(const std::string& terminal) const;

 private:
  struct Entry {
    std::string terminal;
    std::string text;
  };

  CallFate Note(const TracedCall& call);

  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
  CallTracer tracer_;
};
