#include "station/line/route_check.h"

#include <fmt/format.h>

#include "station/report/report.h"

namespace station {

namespace {

std::string HowItEnded(Verdict verdict) {
  if (verdict == Verdict::Failed) return "It failed";
  if (verdict == Verdict::Aborted) return "It was aborted";
  return "It did not finish";
}

std::string CheckPlan(const std::string& plan, const std::string& serial, const PastRuns& past) {
  const std::optional<PastRun> run = past(serial, plan);
  if (!run)
    return fmt::format("Phone {} has never passed “{}”. Take it to that station first.", serial, plan);
  if (run->verdict == Verdict::Passed) return "";
  return fmt::format("Phone {} has not passed “{}”. {} at station {} on {}.", serial, plan,
                     HowItEnded(run->verdict) + " there", run->station, TimeText(run->started));
}

}  // namespace

std::string CheckRoute(const LineRules& rules, const std::string& serial, const PastRuns& past) {
  for (const std::string& plan : rules.requires_plans) {
    try {
      const std::string refusal = CheckPlan(plan, serial, past);
      if (!refusal.empty()) return refusal;
    } catch (const StoreAway&) {
      if (rules.runs_without_results) return "";
      return fmt::format(
          "The results cannot be reached, so it is unknown whether phone {} has passed “{}”. Wait until they "
          "can be reached again.",
          serial, plan);
    }
  }
  return "";
}

bool HasPassed(const std::string& plan, const std::string& serial, const PastRuns& past) {
  try {
    const std::optional<PastRun> run = past(serial, plan);
    return run && run->verdict == Verdict::Passed;
  } catch (const StoreAway&) {
    return false;
  }
}

}  // namespace station
