#include "station/tool/check_plan.h"

#include <fmt/ranges.h>

#include <algorithm>

#include "posix/nearest_words.h"
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

std::vector<std::string> MistakesInAnswers(const Plan& plan, const TerminalOperator& person,
                                           const std::string& answers) {
  std::vector<std::string> mistakes;
  std::vector<std::string> questions;
  for (std::size_t i = 0; i < plan.steps.size(); ++i) {
    const Step& step = plan.steps[i];
    if (step.kind != Step::Kind::Question) continue;
    questions.push_back(step.name);
    if (!step.wanted || person.Answers(step.name)) continue;
    mistakes.push_back(fmt::format("{} has no answer for step {} \"{}\"", answers, i + 1, step.name));
  }
  for (const std::string& name : person.AnsweredSteps()) {
    if (std::ranges::find(questions, name) != questions.end()) continue;
    mistakes.push_back(fmt::format("{} answers \"{}\", which is no question of the plan{}", answers, name,
                                   posix::DidYouMean(name, questions)));
  }
  return mistakes;
}

ExitStatus CheckPlan(const PlanQuestion& question) {
  try {
    const Plan plan = LoadPlanToCheck(question.plan_file, question.variables, BuiltIn(question));
    const std::vector<std::string> mistakes =
        question.answers.empty()
            ? std::vector<std::string>()
            : MistakesInAnswers(plan, TerminalOperator(question.answers, ""), question.answers);
    if (question.json) {
      ShowMistakes(question.plan_file, mistakes);
      if (!mistakes.empty()) return ExitStatus::Usage;
    } else if (!mistakes.empty()) {
      throw UsageError(fmt::format("{}", fmt::join(mistakes, "\n")));
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
