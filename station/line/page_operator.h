// The operator at the line's page: a question stands on one slot's card until someone there answers it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "station/tasks/terminal.h"

namespace station {

struct OpenQuestion {
  std::uint64_t number = 0;  // no other question of this program has it
  std::string text;
};

// One slot's questions; at most one is open.
class PageOperator : public Operator {
 public:
  // `changed` is called when a question opens or closes.
  explicit PageOperator(std::function<void()> changed) : changed_(std::move(changed)) {}

  bool Answers(const std::string&) const override {
    return true;
  }

  // Called in the run's thread. Waits for an answer, the end of the time or the run's stop.
  void Ask(const std::string& phone, const std::string& step, std::chrono::milliseconds time_limit,
           Answer& answer) override;

  std::optional<OpenQuestion> Open() const;

  // Answers the open question. Returns false if another question, or none, is open: a late key press or a
  // second page must not answer what its person has not read.
  bool Reply(std::uint64_t question, Answer::Reply reply, const std::string& by);

 private:
  struct Given {
    Answer::Reply reply;
    std::string by;
    std::time_t at;
  };

  // Waits; returns nothing if the time is over.
  std::optional<Given> WaitForReply(std::chrono::milliseconds time_limit);

  std::function<void()> changed_;
  mutable std::mutex mutex_;
  std::condition_variable answered_;
  std::optional<OpenQuestion> open_;
  std::optional<Given> given_;
};

}  // namespace station
