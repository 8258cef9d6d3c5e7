#include "station/tool/run_plan.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "program_version.h"
#include "station/link/interruption.h"
#include "station/plan/phone_run.h"
#include "station/report/report.h"
#include "station/report/run_folder.h"
#include "station/tasks/terminal.h"
#include "station/tool/simulated_executable.h"

namespace station {

namespace {

// The progress of all phones in one line.
class ProgressLine {
 public:
  ProgressLine(std::size_t steps, const std::vector<std::string>& ports)
      : steps_(steps), ports_(ports), at_(ports.size()), progress_(isatty(STDERR_FILENO) != 0) {}

  void Show(std::size_t phone, std::size_t step, const std::string& name) {
    const std::lock_guard<std::mutex> lock(mutex_);
    at_[phone] = step + 1;
    if (ports_.size() == 1) {
      progress_.ShowBar(fmt::format("{}/{} {}", step + 1, steps_, name), step, steps_);
      return;
    }
    std::string line;
    for (std::size_t i = 0; i < ports_.size(); ++i) {
      line += fmt::format("{}{} {}/{}", i == 0 ? "" : "  ", PortFileName(ports_[i]), at_[i], steps_);
    }
    progress_.Show(line);
  }

 private:
  std::size_t steps_;
  const std::vector<std::string>& ports_;
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

std::vector<PlanResult> RunOnAllPhones(const PlanOrder& order, const std::list<PhoneRun>& phones,
                                       Operator& person) {
  std::vector<PlanResult> results(phones.size());
  ProgressLine line(phones.front().GetPlan().steps.size(), order.ports);
  std::vector<std::jthread> threads;
  for (const PhoneRun& phone : phones) {
    threads.emplace_back([&, number = threads.size()] {
      const auto show = [&](std::size_t step, const std::string& name) { line.Show(number, step, name); };
      results[number] = phone.Run(OptionsOf(order, phone.Port()), person, {.started = show});
    });
  }
  threads.clear();  // waits for all
  return results;
}

void CheckOperator(const Plan& plan, const Operator& person, const std::string& answers) {
  for (std::size_t i = 0; i < plan.steps.size(); ++i) {
    if (plan.steps[i].kind != Step::Kind::Question || !plan.steps[i].wanted) continue;
    if (person.Answers(plan.steps[i].name)) continue;
    if (!answers.empty()) {
      throw UsageError(
          fmt::format("{} has no answer for step {} \"{}\"", answers, i + 1, plan.steps[i].name));
    }
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
    fmt::print("{}", results.size() == 1 ? ReportJson(results.front()) : ReportsJson(results));
    return;
  }
  for (const PlanResult& result : results)
    fmt::print("{}{}", ReportTable(result), results.size() > 1 ? "\n" : "");
  if (results.size() > 1) fmt::print("{}", SummaryTable(results));
}

}  // namespace

ExitStatus ExecutePlan(const PlanOrder& order) {
  CheckPorts(order.ports);
  std::list<PhoneRun> phones;
  for (const std::string& port : order.ports) phones.emplace_back(order.plan_file, order.variables, port);
  NoteInterruptions();
  TerminalOperator person(order.answers, order.person);
  CheckOperator(phones.front().GetPlan(), person, order.answers);
  // Before the plan: its last step may switch the phone off.
  std::vector<std::optional<Executable>> executables;
  for (const std::string& port : order.ports) {
    executables.push_back(SimulatedExecutable(PhonesimBesideTool(), port));
  }
  std::vector<PlanResult> results = RunOnAllPhones(order, phones, person);
  for (std::size_t i = 0; i < results.size(); ++i) {
    results[i].executable = executables[i];
    results[i].origin = {order.station, order.person, PROGRAM_VERSION};
  }
  WriteReportFiles(order, results);
  ShowResults(order, results);
  Verdict verdict = Verdict::Passed;
  for (const PlanResult& result : results) verdict = std::max(verdict, result.verdict);
  return VerdictStatus(verdict);
}

}  // namespace station
