#include "station/campaign/trial.h"

#include <fmt/format.h>

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>

#include "station/campaign/simulated_phone.h"
#include "station/link/interruption.h"
#include "station/plan/phone_run.h"

namespace station {

namespace {

// A simulated phone has no operator: a fault that can only be seen by eye is not found.
class AbsentOperator : public Operator {
 public:
  bool Answers(const std::string&) const override {
    return true;
  }
  void Ask(const std::string&, const std::string&, std::chrono::milliseconds, Answer& answer) override {
    answer.reply = Answer::Reply::Pass;
    answer.by = "the campaign";
    answer.at = std::time(nullptr);
  }
};

// Asks for a stop when the time is over.
class TimeLimit {
 public:
  TimeLimit(std::stop_source& source, std::chrono::milliseconds limit)
      : timer_([&source, limit](const std::stop_token& over) {
          std::mutex mutex;
          std::condition_variable_any waiting;
          std::unique_lock<std::mutex> lock(mutex);
          waiting.wait_for(lock, over, limit, [] { return false; });
          if (!over.stop_requested()) source.request_stop();
        }) {}

 private:
  std::jthread timer_;
};

void Prepare(const TrialSetup& setup, const SimulatedPhone& phone) {
  const std::string tool = std::filesystem::read_symlink("/proc/self/exe");
  for (const std::vector<std::string>& preparation : setup.preparations) {
    std::vector<std::string> words = {tool, "--port", phone.Port(), "--yes"};
    words.insert(words.end(), preparation.begin(), preparation.end());
    OutputOf(words);
  }
}

// Throws OutputLost: a run whose files are lost tells nothing about the fault.
PlanResult Run(const TrialSetup& setup, const SimulatedPhone& phone, const std::stop_token& stop) {
  AbsentOperator person;
  PlanResult result =
      PhoneRun(setup.plan_file, setup.variables, phone.Port()).Run({}, person, {.stop = stop});
  const auto lost = std::ranges::find(result.steps, Verdict::OutputLost, &StepResult::verdict);
  if (lost != result.steps.end()) throw OutputLost(lost->message);
  return result;
}

std::vector<std::string> Lines(std::istream& stream) {
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(std::move(line));
  return lines;
}

}  // namespace

GoodRun RunGoodPhone(const TrialSetup& setup, const std::string& name) {
  GoodRun good;
  const ScratchFolder scratch;
  const std::string journal = scratch.Path() + "/journal.json";
  {
    const std::stop_source never;
    const StoppableRun run(never.get_token());
    const SimulatedPhone phone(setup.phonesim, name, journal);
    Prepare(setup, phone);
    good.defects = phone.Command({"defects"});
    std::istringstream so_far(phone.Command({"journal"}));
    good.started_at = Lines(so_far).size();
    good.result = Run(setup, phone, never.get_token());
  }
  CheckInterruption();
  std::ifstream file(journal);
  good.journal = Lines(file);
  return good;
}

Trial TryFault(const TrialSetup& setup, const Fault& fault, const std::string& name) {
  const auto start = std::chrono::steady_clock::now();
  std::stop_source source;
  PlanResult result;
  {
    const StoppableRun run(source.get_token());
    const SimulatedPhone phone(setup.phonesim, name, "");
    Prepare(setup, phone);
    phone.Command(fault.words);
    const TimeLimit limit(source, setup.time_limit);
    result = Run(setup, phone, source.get_token());
  }
  CheckInterruption();
  if (result.plan_sha256 != setup.plan_sha256) throw PlanError("the plan has changed during the campaign");
  Trial trial{.fault = fault.name, .noticed = result.verdict != Verdict::Passed};
  for (const StepResult& step : result.steps) {
    if (step.verdict == Verdict::Passed || step.verdict == Verdict::Skipped) continue;
    const bool late = step.verdict == Verdict::Aborted;
    const auto seconds = static_cast<double>(setup.time_limit.count()) / 1000;
    // The step that the plan came to next did not run.
    if (late && step.attempts == 0) continue;
    trial.steps.push_back({step.name, late ? "LATE" : VerdictText(step.verdict),
                           late ? fmt::format("the plan had not ended after {} s", seconds) : step.message});
  }
  trial.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return trial;
}

}  // namespace station
