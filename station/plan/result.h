// What came of a plan's run on one phone.
#pragma once

#include <chrono>
#include <ctime>
#include <string>
#include <vector>

#include "station/commands/errors.h"
#include "station/plan/plan.h"
#include "station/tasks/operation.h"

namespace station {

enum class Verdict { Passed, Failed, NoLink, PlanWrong, Skipped };

struct Attachment {
  std::string name;
  std::string type;  // "image/jpeg" or "image/png"
  Bytes content;
};

struct StepResult {
  std::string name;
  std::string command;  // the operation's words with the arguments; empty for other steps
  Verdict verdict = Verdict::Skipped;
  std::string message = {};  // why it did not pass
  int attempts = 0;
  std::chrono::microseconds took{0};
  std::vector<Reading> readings = {};
  std::vector<Exchange> exchanges = {};
  std::vector<Attachment> attachments = {};
};

struct PlanResult {
  std::string plan;
  std::string port;
  std::vector<std::pair<std::string, std::string>> variables;
  std::time_t started = 0;
  std::chrono::microseconds took{0};
  std::chrono::microseconds waited{0};  // in the plan's own wait steps, questions and programs
  Verdict verdict = Verdict::Passed;
  std::vector<StepResult> steps = {};
};

// "passed", "FAILED", "NO LINK", "PLAN ERROR", "skipped".
std::string VerdictText(Verdict verdict);

ExitStatus VerdictStatus(Verdict verdict);

// The graver of two verdicts.
Verdict Worse(Verdict one, Verdict other);

std::size_t CountVerdict(const PlanResult& result, Verdict verdict);

}  // namespace station
