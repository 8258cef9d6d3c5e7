// The person at the station's terminal: sees progress on standard error, and answers questions.
#pragma once

#include <chrono>
#include <cstddef>
#include <ctime>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace station {

// A line on standard error that is rewritten in place. Shown only if a person is watching, and erased at the
// end.
class Progress {
 public:
  explicit Progress(bool shown) : shown_(shown) {}
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  void Show(const std::string& line);

  // "[#####.....]  50 %  label"
  void ShowBar(const std::string& label, std::size_t done, std::size_t total);

 private:
  bool shown_;
  bool dirty_ = false;
  std::string last_;
};

// What was asked in a step, and who answered what and when.
struct Answer {
  enum class Reply { Pass, Fail, Silence };

  std::string question;
  Reply reply = Reply::Silence;
  std::string by =
      {};  // the operator's name, "operator at the terminal", or "--answers pass"; empty without a reply
  std::time_t at = 0;
};

// "pass" or "fail".
const char* ReplyWord(const Answer& answer);

// Answers a plan's questions. Several phones may ask at the same time, each in its own thread.
class Operator {
 public:
  Operator() = default;
  Operator(const Operator&) = delete;
  Operator& operator=(const Operator&) = delete;
  virtual ~Operator() = default;

  // Whether the step's question can be answered.
  virtual bool Answers(const std::string& step) const = 0;

  // Fills in who answers `answer.question`, and what and when. Waits for a reply within the time limit, and
  // watches InterruptionDescriptor() meanwhile. Throws Aborted.
  virtual void Ask(const std::string& phone, const std::string& step, std::chrono::milliseconds time_limit,
                   Answer& answer) = 0;
};

// The person at the terminal, or the answers that the command line has. Phones that ask at the same time take
// turns, and no progress is shown meanwhile.
class TerminalOperator : public Operator {
 public:
  // `answers` is empty if a person answers at the terminal, "pass" or "fail" for that answer to every
  // question, or a JSON file with an object of these words by the steps' names. `name` is the person's; it
  // may be empty. `phones` has the phones' names by port, for those that have one. Throws UsageError.
  TerminalOperator(const std::string& answers, const std::string& name,
                   const std::map<std::string, std::string>& phones = {});

  bool Answers(const std::string& step) const override;
  void Ask(const std::string& phone, const std::string& step, std::chrono::milliseconds time_limit,
           Answer& answer) override;
  // Those that the answers' file names.
  std::vector<std::string> AnsweredSteps() const;

 private:
  Answer::Reply AskAtTerminal(const std::string& question, std::chrono::milliseconds time_limit);

  std::string source_;
  std::string name_;
  std::map<std::string, std::string> phones_;
  std::optional<Answer::Reply> every_;
  std::map<std::string, Answer::Reply> by_step_;
  std::mutex mutex_;
};

}  // namespace station
