#include "station/tool/check_plan.h"

#include "posix/whole_output.h"
#include "station/commands/clean_text.h"
#include "station/report/plan_listing.h"

namespace station {

namespace {

// No step is run, so there is no scratch folder.
std::map<std::string, std::string> BuiltIn(const PlanQuestion& question) {
  return {{"port", question.port.empty() ? "PORT" : question.port}, {"scratch", "SCRATCH"}};
}

void ShowMistakes(const std::string& file, const std::vector<std::string>& mistakes) {
  posix::Print("{}\n", JsonText({{"file", file}, {"mistakes", mistakes}}));
}

}  // namespace

ExitStatus CheckPlan(const PlanQuestion& question) {
  try {
    const Plan plan = LoadPlanToCheck(question.plan_file, question.variables, BuiltIn(question));
    if (question.json) {
      ShowMistakes(question.plan_file, {});
    } else {
      posix::Print("{}: no mistake in {} steps\n", CleanText(question.plan_file), plan.steps.size());
    }
    return ExitStatus::Passed;
  } catch (const PlanMistakes& mistakes) {
    if (!question.json) throw;
    ShowMistakes(question.plan_file, mistakes.List());
    return ExitStatus::PlanError;
  }
}

ExitStatus ListPlan(const PlanQuestion& question) {
  const Plan plan = LoadPlanToShow(question.plan_file, question.variables, BuiltIn(question));
  posix::Print("{}", question.json ? PlanJson(plan) : PlanText(plan));
  return ExitStatus::Passed;
}

}  // namespace station
