#include "station/tool/run_plan.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "program_version.h"
#include "station/link/interruption.h"
#include "station/plan/runner.h"
#include "station/report/report.h"
#include "station/tasks/terminal.h"
#include "station/tool/simulated_executable.h"

namespace station {

namespace {

namespace fs = std::filesystem;

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

// A folder for files that one step of a plan leaves for another. It is removed at the end.
class ScratchFolder {
 public:
  ScratchFolder() : path_(fs::temp_directory_path() / "phonetest-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw UsageError(fmt::format("cannot make the folder {}", path_));
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() {
    std::error_code error;
    fs::remove_all(path_, error);
  }

  const std::string& Path() const {
    return path_;
  }

 private:
  std::string path_;
};

// The plan for one phone, with the phone's port and folder in the steps' texts.
struct PhonePlan {
  PhonePlan(const PlanOrder& order, const std::string& phone_port)
      : port(phone_port),
        plan(LoadPlan(order.plan_file, order.variables, {{"port", port}, {"scratch", scratch.Path()}})) {}

  std::string port;
  ScratchFolder scratch;
  Plan plan;
};

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

// The folder is gone when someone reads the result: its name becomes the plan's word for it.
PlanResult WithoutScratch(PlanResult result, const std::string& scratch) {
  const auto forget = [&scratch](std::string& text) { ReplaceAll(text, scratch, "${scratch}"); };
  for (StepResult& step : result.steps) {
    for (std::string* text : {&step.name, &step.command, &step.question, &step.message}) forget(*text);
    if (step.program) std::ranges::for_each(step.program->words, forget);
    for (Reading& reading : step.readings) {
      forget(reading.text);
      if (reading.value.is_string()) forget(reading.value.get_ref<std::string&>());
    }
  }
  return result;
}

PlanResult RunOnPhone(const PlanOrder& order, const PhonePlan& phone, Operator& person,
                      const StepStarted& started) {
  const bool alone = order.ports.size() == 1;
  try {
    std::unique_ptr<Trace> trace;
    if (!order.trace_file.empty()) {
      const std::string file = alone ? order.trace_file : order.trace_file + "." + PortFileName(phone.port);
      trace = std::make_unique<Trace>(file, phone.port);
    }
    Link link(phone.port, trace.get());
    Session session(link, {order.answer_time, alone && isatty(STDERR_FILENO) != 0});
    return WithoutScratch(RunPlan(phone.plan, session, person, started), phone.scratch.Path());
  } catch (const std::exception& failure) {
    return WithoutScratch(UnstartedPlan(phone.plan, phone.port, failure.what()), phone.scratch.Path());
  }
}

std::vector<PlanResult> RunOnAllPhones(const PlanOrder& order, const std::list<PhonePlan>& phones,
                                       Operator& person) {
  std::vector<PlanResult> results(phones.size());
  ProgressLine line(phones.front().plan.steps.size(), order.ports);
  std::vector<std::jthread> threads;
  for (const PhonePlan& phone : phones) {
    threads.emplace_back([&, number = threads.size()] {
      const auto show = [&](std::size_t step, const std::string& name) { line.Show(number, step, name); };
      results[number] = RunOnPhone(order, phone, person, show);
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
  std::list<PhonePlan> phones;
  for (const std::string& port : order.ports) phones.emplace_back(order, port);
  NoteInterruptions();
  Operator person(order.answers, order.person);
  CheckOperator(phones.front().plan, person, order.answers);
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
  if (!order.report_folder.empty()) WriteReports(order.report_folder, results);
  ShowResults(order, results);
  Verdict verdict = Verdict::Passed;
  for (const PlanResult& result : results) verdict = std::max(verdict, result.verdict);
  return VerdictStatus(verdict);
}

}  // namespace station
