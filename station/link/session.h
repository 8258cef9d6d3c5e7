// A conversation with one phone: one command after the other over a link, each recorded.
#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <string>

#include "station/commands/bytes.h"
#include "station/commands/command.h"
#include "station/link/link.h"

namespace station {

// What went over the link for one command.
struct Exchange {
  std::string name;
  Bytes sent;
  Bytes received;
  std::chrono::microseconds started;  // since the session began
  std::chrono::microseconds took;
};

// Several exchanges. Only the last of them are kept if they are many: a poll can go on for hours.
struct Transcript {
  std::deque<Exchange> kept = {};
  std::size_t count = 0;  // all of them
  std::chrono::microseconds took{0};
};

struct SessionOptions {
  std::optional<std::chrono::milliseconds> answer_time;  // instead of each command's own
  bool progress = false;                                 // a person is watching standard error
};

class Session {
 public:
  // The link must outlive the session.
  explicit Session(Link& link, SessionOptions options = {});

  // Sends the command and returns its whole answer, undecoded. Throws LinkFailure if it does not come in
  // time.
  Bytes Run(const Command& command, const ArgumentValues& arguments);

  // The same, but returns nothing if no whole answer came within exactly this time.
  std::optional<Bytes> TryRun(const Command& command, const ArgumentValues& arguments,
                              std::chrono::milliseconds time);

  // The same as Run for bytes that no row describes.
  Bytes RunRaw(const std::string& name, const Bytes& sent, std::size_t answer_size,
               std::chrono::milliseconds answer_time);

  Link& GetLink() {
    return link_;
  }
  const std::string& Port() const {
    return link_.Port();
  }
  const SessionOptions& Options() const {
    return options_;
  }

  // The exchanges since the last call.
  Transcript TakeTranscript();

 private:
  // Sends and waits; returns what came in time.
  Bytes Converse(const std::string& name, const Bytes& sent, std::size_t answer_size,
                 std::chrono::milliseconds time);
  void Keep(Exchange exchange);

  // After an interruption: takes the rest of the answer, which is not one to the next command.
  void AwaitOwedAnswer();

  Link& link_;
  SessionOptions options_;
  Clock::time_point start_ = Clock::now();
  Transcript transcript_;
  std::size_t kept_bytes_ = 0;
  std::size_t owed_ = 0;  // bytes of an answer that was not waited for
  Clock::time_point owed_until_;
};

}  // namespace station
