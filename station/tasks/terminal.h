// The person at the station's terminal: sees progress on standard error, and answers questions.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>

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

// Answers a plan's questions. Several phones may ask at the same time; they take turns.
class Operator {
 public:
  enum class Reply { Yes, No, Silence };

  // With `always_yes` no one is asked.
  explicit Operator(bool always_yes) : always_yes_(always_yes) {}

  // Whether a question can be asked: there is a terminal, or every reply is yes.
  bool Present() const;

  Reply Ask(const std::string& question, std::chrono::milliseconds time_limit);

 private:
  bool always_yes_;
  std::mutex mutex_;
};

}  // namespace station
