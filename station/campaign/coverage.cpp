#include "station/campaign/coverage.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "station/campaign/state_file.h"

namespace station {

namespace {

std::string ReasonFor(const std::string& fault, const Reasons& reasons, std::set<std::string>& used) {
  for (const auto& [pattern, reason] : reasons) {
    if (!FitsPattern(pattern, fault)) continue;
    used.insert(pattern);
    return reason;
  }
  return "";
}

void CountStep(Coverage& coverage, const Trial& trial) {
  for (const TroubledStep& troubled : trial.steps) {
    const auto step = std::ranges::find(coverage.steps, troubled.name, &Coverage::OfStep::name);
    if (step == coverage.steps.end()) continue;
    ++step->noticed;
    if (trial.steps.size() == 1) ++step->alone;
  }
}

}  // namespace

std::size_t Coverage::Noticed() const {
  return static_cast<std::size_t>(
      std::ranges::count(faults, true, [](const OfFault& one) { return one.trial.noticed; }));
}

std::size_t Coverage::Holes() const {
  return static_cast<std::size_t>(std::ranges::count(faults, true, &OfFault::IsHole));
}

std::size_t Coverage::Explained() const {
  return faults.size() - Noticed() - Holes();
}

Coverage MakeCoverage(const PlanResult& good, std::vector<Trial> trials, const Reasons& reasons) {
  Coverage coverage{.plan = good.plan, .plan_file = good.plan_file, .plan_sha256 = good.plan_sha256};
  for (const StepResult& step : good.steps) coverage.steps.push_back({step.name});
  std::set<std::string> used;
  for (Trial& trial : trials) {
    CountStep(coverage, trial);
    const std::string reason = trial.noticed ? "" : ReasonFor(trial.fault, reasons, used);
    coverage.faults.push_back({std::move(trial), reason});
  }
  for (const auto& [pattern, reason] : reasons) {
    if (!used.contains(pattern)) coverage.idle_reasons.push_back(pattern);
  }
  return coverage;
}

std::string CoverageText(const Coverage& coverage) {
  std::string text =
      fmt::format("{}: {} faults, {} noticed, {} explained, {} unnoticed\n", coverage.plan,
                  coverage.faults.size(), coverage.Noticed(), coverage.Explained(), coverage.Holes());
  text += "\nfaults noticed, of them by this step alone\n";
  for (const Coverage::OfStep& step : coverage.steps) {
    text += fmt::format("{:5} {:5}  {}\n", step.noticed, step.alone, step.name);
  }
  for (const bool holes : {false, true}) {
    if ((holes ? coverage.Holes() : coverage.Explained()) == 0) continue;
    text += holes ? "\nno step notices:\n" : "\nno station could notice:\n";
    for (const Coverage::OfFault& one : coverage.faults) {
      if (one.trial.noticed || one.IsHole() != holes) continue;
      text += holes ? fmt::format("  {}\n", one.trial.fault)
                    : fmt::format("  {}: {}\n", one.trial.fault, one.reason);
    }
  }
  for (const std::string& pattern : coverage.idle_reasons) {
    text += fmt::format("\nthe reason for \"{}\" explains nothing\n", pattern);
  }
  if (coverage.untried > 0)
    text += fmt::format("\n{} faults were not tried; --resume goes on\n", coverage.untried);
  return text;
}

std::string CoverageJson(const Coverage& coverage) {
  using nlohmann::ordered_json;
  ordered_json steps = ordered_json::array();
  for (const Coverage::OfStep& step : coverage.steps) {
    steps.push_back({{"name", step.name}, {"noticed", step.noticed}, {"alone", step.alone}});
  }
  ordered_json faults = ordered_json::array();
  for (const Coverage::OfFault& one : coverage.faults) {
    ordered_json fault = TrialJson(one.trial);
    if (!one.reason.empty()) fault["reason"] = one.reason;
    faults.push_back(fault);
  }
  const ordered_json whole = {{"plan", coverage.plan},
                              {"plan-file", coverage.plan_file},
                              {"plan-sha256", coverage.plan_sha256},
                              {"faults-tried", coverage.faults.size()},
                              {"noticed", coverage.Noticed()},
                              {"explained", coverage.Explained()},
                              {"unnoticed", coverage.Holes()},
                              {"untried", coverage.untried},
                              {"steps", steps},
                              {"faults", faults},
                              {"idle-reasons", coverage.idle_reasons}};
  return whole.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace station
