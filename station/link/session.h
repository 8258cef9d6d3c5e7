// A conversation with one phone: one command after the other over a link, each recorded.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

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

struct SessionOptions {
  std::optional<std::chrono::milliseconds> answer_time;  // instead of each command's own
  bool progress = false;                                 // a person is watching standard error
};

class Session {
 public:
  // The link must outlive the session.
  explicit Session(Link& link, SessionOptions options = {});

  // Sends the command and returns its whole answer, undecoded. Throws LinkFailure when it does not come in
  // time.
  Bytes Run(const Command& command, const ArgumentValues& arguments);

  // The same, but nothing when no whole answer came within exactly this time.
  std::optional<Bytes> TryRun(const Command& command, const ArgumentValues& arguments,
                              std::chrono::milliseconds time);

  // The same for bytes that no row describes.
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
  const std::vector<Exchange>& Exchanges() const {
    return exchanges_;
  }

 private:
  // Sends and waits; the answer is as long as what came in time.
  const Exchange& Converse(const std::string& name, const Bytes& sent, std::size_t answer_size,
                           std::chrono::milliseconds time);

  Link& link_;
  SessionOptions options_;
  Clock::time_point start_ = Clock::now();
  std::vector<Exchange> exchanges_;
};

}  // namespace station
