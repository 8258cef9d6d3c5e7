#include "station/plan/phone_plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "station/commands/errors.h"

namespace station {

namespace {

namespace fs = std::filesystem;

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

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

}  // namespace

ScratchFolder::ScratchFolder() : path_(fs::temp_directory_path() / "phonetest-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) throw UsageError(fmt::format("cannot make the folder {}", path_));
}

ScratchFolder::~ScratchFolder() {
  std::error_code error;
  fs::remove_all(path_, error);
}

PhonePlan::PhonePlan(const std::string& plan_file, const std::map<std::string, std::string>& variables,
                     const std::string& phone_port)
    : port(phone_port), plan(LoadPlan(plan_file, variables, {{"port", port}, {"scratch", scratch.Path()}})) {}

PlanResult RunOnPhone(const PhonePlan& phone, Trace* trace, const SessionOptions& options, Operator& person,
                      const StepStarted& started) {
  try {
    Link link(phone.port, trace);
    Session session(link, options);
    return WithoutScratch(RunPlan(phone.plan, session, person, started), phone.scratch.Path());
  } catch (const std::exception& failure) {
    return WithoutScratch(UnstartedPlan(phone.plan, phone.port, failure.what()), phone.scratch.Path());
  }
}

}  // namespace station
