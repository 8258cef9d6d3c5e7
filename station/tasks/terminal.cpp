#include "station/tasks/terminal.h"

#include <fmt/format.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "station/commands/clean_text.h"
#include "station/commands/errors.h"
#include "station/link/interruption.h"
#include "station/tasks/operation.h"

namespace station {

namespace {

// Returns to the line's start and erases the line.
constexpr const char* FRESH_LINE = "\r\033[K";

// While a question stands on the terminal, nothing is shown over it.
std::mutex terminal_use;
bool question_stands = false;

class HeldProgress {
 public:
  HeldProgress() {
    Hold(true);
  }
  HeldProgress(const HeldProgress&) = delete;
  HeldProgress& operator=(const HeldProgress&) = delete;
  ~HeldProgress() {
    Hold(false);
  }

 private:
  static void Hold(bool held) {
    const std::lock_guard<std::mutex> lock(terminal_use);
    question_stands = held;
  }
};

std::optional<Answer::Reply> ReplyOf(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
  for (char& letter : text) letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
  if (text == "p" || text == "pass" || text == "y" || text == "yes") return Answer::Reply::Pass;
  if (text == "f" || text == "fail" || text == "n" || text == "no") return Answer::Reply::Fail;
  return std::nullopt;
}

}  // namespace

const char* ReplyWord(const Answer& answer) {
  return answer.reply == Answer::Reply::Pass ? "pass" : "fail";
}

Progress::~Progress() {
  const std::lock_guard<std::mutex> lock(terminal_use);
  if (dirty_) fmt::print(stderr, "{}", FRESH_LINE);
}

void Progress::Show(const std::string& line) {
  const std::lock_guard<std::mutex> lock(terminal_use);
  if (!shown_ || question_stands || line == last_) return;
  fmt::print(stderr, "{}{}", FRESH_LINE, CleanText(line));
  std::fflush(stderr);
  last_ = line;
  dirty_ = true;
}

void Progress::ShowBar(const std::string& label, std::size_t done, std::size_t total) {
  constexpr std::size_t WIDTH = 30;
  const std::size_t percent = total == 0 ? 100 : std::min<std::size_t>(100, done * 100 / total);
  const std::size_t filled = percent * WIDTH / 100;
  Show(fmt::format("[{:#<{}}{:.<{}}] {:3} %  {}", "", filled, "", WIDTH - filled, percent, label));
}

TerminalOperator::TerminalOperator(const std::string& answers, const std::string& name,
                                   const std::map<std::string, std::string>& phones)
    : source_(answers), name_(name), phones_(phones) {
  constexpr std::size_t LARGEST = 1u << 20;
  if (answers.empty()) return;
  every_ = ReplyOf(answers);
  if (every_) return;
  const auto file = nlohmann::json::parse(ReadFile(answers, LARGEST), nullptr, false, true);
  if (!file.is_object()) throw UsageError(fmt::format("{} is not a JSON object of answers", answers));
  for (const auto& [step, word] : file.items()) {
    const auto reply = word.is_string() ? ReplyOf(word.get<std::string>()) : std::nullopt;
    if (!reply) throw UsageError(fmt::format("{}: the answer to \"{}\" is not pass or fail", answers, step));
    by_step_[step] = *reply;
  }
}

bool TerminalOperator::Answers(const std::string& step) const {
  if (source_.empty()) return isatty(STDIN_FILENO) != 0;
  return every_ || by_step_.contains(step);
}

std::vector<std::string> TerminalOperator::AnsweredSteps() const {
  std::vector<std::string> steps;
  for (const auto& [step, reply] : by_step_) steps.push_back(step);
  return steps;
}

void TerminalOperator::Ask(const std::string& phone, const std::string& step,
                           std::chrono::milliseconds time_limit, Answer& answer) {
  if (source_.empty()) {
    const auto named = phones_.find(phone);
    const std::string who = named == phones_.end() ? phone : fmt::format("{} ({})", named->second, phone);
    answer.reply = AskAtTerminal(fmt::format("{}: {}", who, answer.question), time_limit);
    answer.by = name_.empty() ? "operator at the terminal" : name_;
  } else {
    answer.reply = every_ ? *every_ : by_step_.at(step);
    answer.by = "--answers " + source_;
  }
  if (answer.reply == Answer::Reply::Silence) answer.by.clear();
  answer.at = std::time(nullptr);
}

// Nothing is taken for an answer but its letter or word: the Enter key alone asks again.
Answer::Reply TerminalOperator::AskAtTerminal(const std::string& question,
                                              std::chrono::milliseconds time_limit) {
  const std::lock_guard<std::mutex> turn(mutex_);
  CheckInterruption();
  const HeldProgress held;
  // Input from before the question does not answer it.
  tcflush(STDIN_FILENO, TCIFLUSH);
  const auto end = std::chrono::steady_clock::now() + time_limit;
  for (;;) {
    fmt::print(stderr, "{}{} [p/f] ", FRESH_LINE, CleanText(question));
    std::fflush(stderr);
    std::array<pollfd, 2> waiting = {{{STDIN_FILENO, POLLIN, 0}, {InterruptionDescriptor(), POLLIN, 0}}};
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    poll(waiting.data(), waiting.size(), static_cast<int>(std::max<std::int64_t>(left, 0)));
    if (waiting[0].revents == 0) {
      fmt::print(stderr, "\n");
      CheckInterruption();
      return Answer::Reply::Silence;
    }
    std::array<char, 256> line{};
    const ssize_t count = read(STDIN_FILENO, line.data(), line.size());
    if (count <= 0) return Answer::Reply::Silence;
    if (const auto reply = ReplyOf({line.data(), static_cast<std::size_t>(count)})) return *reply;
    fmt::print(stderr, "Type p (pass, yes) or f (fail, no), then Enter.\n");
  }
}

}  // namespace station
