// The person at the station, who answers a plan's questions. Several phones may ask at once; they take turns.
#pragma once

#include <chrono>
#include <mutex>
#include <string>

namespace station {

class Operator {
 public:
  enum class Reply { Yes, No, Silence };

  // With `always_yes` nobody is asked.
  explicit Operator(bool always_yes) : always_yes_(always_yes) {}

  // Whether a question can be put at all: there is a terminal, or every reply is yes.
  bool Present() const;

  Reply Ask(const std::string& question, std::chrono::milliseconds time_limit);

 private:
  bool always_yes_;
  std::mutex mutex_;
};

}  // namespace station
