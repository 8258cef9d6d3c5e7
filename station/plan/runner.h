// Runs a plan on one phone, and holds the result.
#pragma once

#include <chrono>
#include <ctime>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "station/commands/errors.h"
#include "station/plan/plan.h"
#include "station/tasks/operation.h"
#include "station/tasks/terminal.h"

namespace station {

// From the best to the gravest: the gravest of the steps is the plan's.
enum class Verdict { Skipped, Passed, Incomplete, Failed, NoLink, PlanWrong, Aborted, OutputLost };

struct Attachment {
  std::string name;
  std::string type;  // "image/jpeg" or "image/png"
  Bytes content;
};

// A limit with the value that it was compared with. Its verdict is Skipped, and its value null, if it was
// not.
struct JudgedLimit {
  std::string reading;
  nlohmann::json stated;  // as the plan has it
  std::string text;       // the same for a person
  nlohmann::ordered_json value = nullptr;
  std::string unit = {};
  Verdict verdict = Verdict::Skipped;
};

struct ProgramRecord {
  std::vector<std::string> words;  // its command line
  std::optional<int> exit_status = {};
  std::optional<int> signal = {};  // that ended it
};

struct StepResult {
  std::string name;
  std::string operation = {};  // its words; empty for other steps
  std::string command = {};    // the words with the arguments
  std::string question = {};
  std::optional<ProgramRecord> program = {};
  Verdict verdict = Verdict::Skipped;
  std::string message = {};  // why it did not pass
  int attempts = 0;
  std::chrono::microseconds took{0};
  std::vector<Reading> readings = {};
  std::vector<JudgedLimit> limits = {};
  Transcript transcript = {};
  std::vector<Attachment> attachments = {};
  std::optional<Answer> answer = {};  // of a question that was asked
};

// The server of a simulated phone, which says what was tested.
struct Executable {
  std::string path;
  std::string processor;
  std::string sha256;
};

// Who tests, where and with what.
struct Origin {
  std::string station;
  std::string person;  // the operator; empty if not told
  std::string tool_version;
};

struct PlanResult {
  std::string plan;
  std::string plan_file = {};
  std::string plan_sha256 = {};
  std::string port;
  std::string slot = {};  // the port's name in the configuration, if it has one
  std::vector<std::pair<std::string, std::string>> variables;
  std::time_t started = 0;
  std::time_t ended = 0;
  std::chrono::microseconds took{0};
  std::chrono::microseconds waited{0};  // in the plan's own wait steps, questions and programs
  Verdict verdict = Verdict::Passed;
  std::vector<StepResult> steps = {};
  Origin origin = {};
  std::optional<Executable> executable = {};  // of a simulated phone
};

// "passed", "INCOMPLETE", "FAILED", "NO LINK", "PLAN ERROR", "ABORTED", "OUTPUT LOST", "skipped".
std::string VerdictText(Verdict verdict);

ExitStatus VerdictStatus(Verdict verdict);

std::size_t CountVerdict(const PlanResult& result, Verdict verdict);

// How a run is watched and ended from outside. The functions may be left out; they are called in the run's
// own thread.
struct RunControl {
  // Before each step that is run, with its number, from 0, and its name.
  std::function<void(std::size_t, const std::string&)> started = {};
  // With each step's result, also if it was not run; a second time for a program in the background that has
  // failed.
  std::function<void(std::size_t, const StepResult&)> finished = {};
  // Ends this run as the first Ctrl-C ends all: the step is ended, the plan cleans up, its verdict is
  // Aborted.
  std::stop_token stop = {};
};

// Runs all steps and judges them; a step that fails throws nothing. The calling thread has a StoppableRun
// with the control's stop.
PlanResult RunPlan(const Plan& plan, Session& session, Operator& person, const RunControl& control);

// The result of a plan that could not start: the port cannot be used, or the trace cannot be written.
PlanResult UnstartedPlan(const Plan& plan, const std::string& port, const std::string& failure,
                         Verdict verdict);

}  // namespace station
