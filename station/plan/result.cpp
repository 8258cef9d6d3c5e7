#include "station/plan/result.h"

#include <algorithm>

namespace station {

namespace {

// How grave a verdict is among those of other steps or phones.
int Gravity(Verdict verdict) {
  switch (verdict) {
    case Verdict::Skipped:
      return 0;
    case Verdict::Passed:
      return 1;
    case Verdict::Failed:
      return 2;
    case Verdict::NoLink:
      return 3;
    case Verdict::PlanWrong:
      return 4;
  }
  return 4;
}

}  // namespace

std::string VerdictText(Verdict verdict) {
  switch (verdict) {
    case Verdict::Passed:
      return "passed";
    case Verdict::Failed:
      return "FAILED";
    case Verdict::NoLink:
      return "NO LINK";
    case Verdict::PlanWrong:
      return "PLAN ERROR";
    case Verdict::Skipped:
      return "skipped";
  }
  return "";
}

ExitStatus VerdictStatus(Verdict verdict) {
  switch (verdict) {
    case Verdict::Passed:
    case Verdict::Skipped:
      return ExitStatus::Passed;
    case Verdict::Failed:
      return ExitStatus::DeviceFailure;
    case Verdict::NoLink:
      return ExitStatus::LinkFailure;
    case Verdict::PlanWrong:
      return ExitStatus::PlanError;
  }
  return ExitStatus::PlanError;
}

Verdict Worse(Verdict one, Verdict other) {
  return Gravity(one) >= Gravity(other) ? one : other;
}

std::size_t CountVerdict(const PlanResult& result, Verdict verdict) {
  return static_cast<std::size_t>(std::ranges::count(result.steps, verdict, &StepResult::verdict));
}

}  // namespace station
