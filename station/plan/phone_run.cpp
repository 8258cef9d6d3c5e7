#include "station/plan/phone_run.h"

#include <fmt/format.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "station/commands/errors.h"
#include "station/link/interruption.h"

namespace station {

namespace {

namespace fs = std::filesystem;

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

void ForgetScratch(StepResult& step, const std::string& scratch) {
  const auto forget = [&scratch](std::string& text) { ReplaceAll(text, scratch, "${scratch}"); };
  for (std::string* text : {&step.name, &step.command, &step.question, &step.message}) forget(*text);
  if (step.program) std::ranges::for_each(step.program->words, forget);
  for (Reading& reading : step.readings) {
    forget(reading.text);
    if (reading.value.is_string()) forget(reading.value.get_ref<std::string&>());
  }
}

PlanResult RunOnPort(const Plan& plan, const std::string& port, const PhoneRun::Options& options,
                     Operator& person, const RunControl& control) {
  const StoppableRun stoppable(control.stop);
  try {
    std::unique_ptr<Trace> trace;
    if (!options.trace_file.empty()) trace = std::make_unique<Trace>(options.trace_file, port);
    Link link(port, trace.get());
    Session session(link, options.session);
    return RunPlan(plan, session, person, control);
  } catch (const Aborted& aborted) {
    return UnstartedPlan(plan, port, aborted.what(), Verdict::Aborted);
  } catch (const OutputLost& lost) {
    return UnstartedPlan(plan, port, lost.what(), Verdict::OutputLost);
  } catch (const std::exception& failure) {
    return UnstartedPlan(plan, port, failure.what(), Verdict::NoLink);
  }
}

}  // namespace

ScratchFolder::ScratchFolder() : path_(fs::temp_directory_path() / "phonetest-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) throw UsageError(fmt::format("cannot make the folder {}", path_));
}

ScratchFolder::~ScratchFolder() {
  std::error_code error;
  fs::remove_all(path_, error);
}

PhoneRun::PhoneRun(const std::string& plan_file, const std::map<std::string, std::string>& variables,
                   const std::string& port)
    : port_(port), plan_(LoadPlan(plan_file, variables, {{"port", port}, {"scratch", scratch_.Path()}})) {}

PlanResult PhoneRun::Run(const Options& options, Operator& person, const RunControl& control) const {
  RunControl forgetting = control;
  if (control.finished) {
    forgetting.finished = [&](std::size_t number, StepResult step) {
      ForgetScratch(step, scratch_.Path());
      control.finished(number, step);
    };
  }
  PlanResult result = RunOnPort(plan_, port_, options, person, forgetting);
  for (StepResult& step : result.steps) ForgetScratch(step, scratch_.Path());
  return result;
}

}  // namespace station
