#include "station/tool/run_plan.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "posix/whole_output.h"
#include "program_version.h"
#include "station/commands/clean_text.h"
#include "station/link/interruption.h"
#include "station/plan/phone_run.h"
#include "station/report/report.h"
#include "station/report/run_folder.h"
#include "station/results/plan_numbers.h"
#include "station/results/run_recorder.h"
#include "station/tasks/terminal.h"
#include "station/tool/check_plan.h"
#include "station/tool/line_rules.h"
#include "station/tool/simulated_executable.h"

namespace station {

namespace {

// The progress of all phones in one line.
class ProgressLine {
 public:
  ProgressLine(std::size_t steps, const PlanOrder& order)
      : steps_(steps), ports_(order.ports), at_(ports_.size()), progress_(isatty(STDERR_FILENO) != 0) {
    for (std::string& port : ports_) {
      port = order.slots.contains(port) ? order.slots.at(port) : PortFileName(port);
    }
  }

  void Show(std::size_t phone, std::size_t step, const std::string& name) {
    const std::lock_guard<std::mutex> lock(mutex_);
    at_[phone] = step + 1;
    if (ports_.size() == 1) {
      progress_.ShowBar(fmt::format("{}/{} {}", step + 1, steps_, name), step, steps_);
      return;
    }
    std::string line;
    for (std::size_t i = 0; i < ports_.size(); ++i) {
      line += fmt::format("{}{} {}/{}", i == 0 ? "" : "  ", ports_[i], at_[i], steps_);
    }
    progress_.Show(line);
  }

 private:
  std::size_t steps_;
  std::vector<std::string> ports_;  // their short names
  std::vector<std::size_t> at_;
  std::mutex mutex_;
  Progress progress_;
};

PhoneRun::Options OptionsOf(const PlanOrder& order, const std::string& port) {
  const bool alone = order.ports.size() == 1;
  const std::string suffix = alone ? "" : "." + PortFileName(port);
  return {.trace_file = order.trace_file.empty() ? "" : order.trace_file + suffix,
          .session = {order.answer_time, alone && isatty(STDERR_FILENO) != 0}};
}

// One phone of an order.
struct OnePhone {
  const PhoneRun& phone;
  std::optional<Executable> executable;
  std::unique_ptr<RunRecorder> recorder = nullptr;
  std::string run = NewRunId();
};

PlanResult RunOnPhone(const PlanOrder& order, OnePhone& one, Operator& person, RunControl control) {
  const Origin origin = {order.station, order.person, PROGRAM_VERSION};
  const std::string slot = order.slots.contains(one.phone.Port()) ? order.slots.at(one.phone.Port()) : "";
  std::size_t recorded = 0;
  if (order.results) {
    RunStart start = StartOf(one.phone.GetPlan(), one.phone.Port(), origin, one.run);
    start.slot = slot;
    if (!order.serial.empty()) start.serial = order.serial;
    if (!order.retest_reason.empty()) start.variables.emplace_back("retest reason", order.retest_reason);
    one.recorder = std::make_unique<RunRecorder>(*order.results, start);
    control.finished = [&](std::size_t step, const StepResult& done) {
      one.recorder->Add(StepOf(step, done));
      recorded = std::max(recorded, step + 1);  // a program in the background comes a second time
    };
  }
  const PhoneRun::Options options = OptionsOf(order, one.phone.Port());
  PlanResult result = one.phone.Run(options, person, control);
  result.executable = one.executable;
  result.origin = origin;
  result.slot = slot;
  if (!one.recorder) return result;
  // Of a run that could not start, no step has been told.
  for (std::size_t i = recorded; i < result.steps.size(); ++i) one.recorder->Add(StepOf(i, result.steps[i]));
  RunEnd end = EndOf(result);
  if (!options.trace_file.empty()) AttachFile(end, options.trace_file);
  for (const std::string& file : order.attached) AttachFile(end, file);
  one.recorder->Finish(std::move(end));
  return result;
}

// Says what did not get into the database. Throws OutputLost if it is nowhere.
void TellProblems(const std::list<OnePhone>& ones) {
  std::string lost;
  for (const OnePhone& one : ones) {
    if (one.recorder && !one.recorder->HandInProblem().empty()) {
      fmt::print(stderr, "phonetest: not every spooled run could be handed in: {}\n",
                 CleanText(one.recorder->HandInProblem()));
    }
    if (!one.recorder || one.recorder->Problem().empty()) continue;
    const std::string problem = CleanText(one.recorder->Problem());
    if (one.recorder->IsLost()) {
      lost = "the run's record is lost: " + problem;
    } else {
      fmt::print(stderr, "phonetest: {}; the run is kept in the spool and is handed in by a later run\n",
                 problem);
    }
  }
  if (!lost.empty()) throw OutputLost(lost);
}

// Runs that start at the same moment also want the PC's processors, and wait, at the same moments.
constexpr std::chrono::milliseconds STARTS_APART(40);

std::vector<PlanResult> RunOnAllPhones(const PlanOrder& order, std::list<OnePhone>& ones, Operator& person) {
  std::vector<PlanResult> results(ones.size());
  ProgressLine line(ones.front().phone.GetPlan().steps.size(), order);
  std::vector<std::jthread> threads;
  for (OnePhone& one : ones) {
    threads.emplace_back([&, number = threads.size()] {
      std::this_thread::sleep_for(number * STARTS_APART);
      const auto show = [&](std::size_t step, const std::string& name) { line.Show(number, step, name); };
      results[number] = RunOnPhone(order, one, person, {.started = show});
    });
  }
  threads.clear();  // waits for all
  return results;
}

void CheckOperator(const Plan& plan, const TerminalOperator& person, const std::string& answers) {
  if (!answers.empty()) {
    const std::vector<std::string> mistakes = MistakesInAnswers(plan, person, answers);
    if (!mistakes.empty()) throw UsageError(fmt::format("{}", fmt::join(mistakes, "\n")));
    return;
  }
  for (std::size_t i = 0; i < plan.steps.size(); ++i) {
    if (plan.steps[i].kind != Step::Kind::Question || !plan.steps[i].wanted) continue;
    if (person.Answers(plan.steps[i].name)) continue;
    throw PlanError(
        fmt::format("step {} \"{}\" asks the operator, and there is no terminal: use --answers to "
                    "say what is answered",
                    i + 1, plan.steps[i].name));
  }
}

void CheckPorts(const std::vector<std::string>& ports) {
  for (const std::string& port : ports) {
    if (std::ranges::count(ports, port) > 1)
      throw UsageError(fmt::format("{} is given more than once", port));
  }
}

void WriteReportFiles(const PlanOrder& order, const std::vector<PlanResult>& results) {
  std::string folder = order.report_folder;
  if (folder.empty() && !order.reports_folder.empty()) {
    folder = MakeRunFolder(order.reports_folder, order.plan_file);
    fmt::print(stderr, "report: {}\n", folder);
  }
  if (!folder.empty()) WriteReports(folder, results);
}

void ShowResults(const PlanOrder& order, const std::vector<PlanResult>& results) {
  if (order.json) {
    posix::Print("{}", results.size() == 1 ? ReportJson(results.front()) : ReportsJson(results));
    return;
  }
  for (const PlanResult& result : results)
    posix::Print("{}{}", ReportTable(result), results.size() > 1 ? "\n" : "");
  if (results.size() > 1) posix::Print("{}", SummaryTable(results));
}

}  // namespace

ExitStatus ExecutePlan(const PlanOrder& given) {
  CheckPorts(given.ports);
  const std::vector<PoolDraw> draws = DrawsOfPlan(given.plan_file);
  PlanOrder order = given;
  CheckLineRules(order);
  const std::string run = NewRunId();  // of the only phone, if the plan draws
  std::map<std::string, std::string> known = order.variables;
  order.serial = SerialOf(order);
  if (!order.serial.empty()) known["serial"] = order.serial;
  PlanNumbers numbers(order.results, draws, known, run, order.station, order.reserve);
  if (!numbers.Values().empty() && order.ports.size() > 1)
    throw UsageError("a plan that draws numbers runs on one phone at a time: give --port once");
  order.variables.insert(numbers.Values().begin(), numbers.Values().end());
  std::list<PhoneRun> phones;
  for (const std::string& port : order.ports) phones.emplace_back(order.plan_file, order.variables, port);
  NoteInterruptions();
  TerminalOperator person(order.answers, order.person, order.slots);
  CheckOperator(phones.front().GetPlan(), person, order.answers);
  std::list<OnePhone> ones;
  for (const PhoneRun& phone : phones) {
    // Before the plan: its last step may switch the phone off.
    ones.push_back({phone, SimulatedExecutable(PhonesimBesideTool(), phone.Port())});
  }
  if (!numbers.Values().empty()) ones.front().run = run;
  numbers.Begin();
  const std::vector<PlanResult> results = RunOnAllPhones(order, ones, person);
  numbers.Settle(phones.front().GetPlan(), results.front());
  try {
    WriteReportFiles(order, results);
  } catch (const OutputLost& lost) {
    posix::TellLostOutput(lost.what());
  }
  ShowResults(order, results);
  TellProblems(ones);
  Verdict verdict = Verdict::Passed;
  for (const PlanResult& result : results) verdict = std::max(verdict, result.verdict);
  return VerdictStatus(verdict);
}

}  // namespace station
