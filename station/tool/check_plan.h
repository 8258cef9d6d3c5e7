// Looks at a plan without a phone: are there mistakes in it, and what would it do?
#pragma once

#include <map>
#include <string>
#include <vector>

#include "station/commands/errors.h"
#include "station/plan/plan.h"
#include "station/tasks/terminal.h"

namespace station {

struct PlanQuestion {
  std::string plan_file;
  std::map<std::string, std::string> variables;
  std::string port;     // ${port} in the steps' texts; may be empty
  std::string answers;  // as TerminalOperator takes them; not looked at if empty
  bool json = false;
};

// What is wrong with the answers for this plan: questions without an answer, and answers to what is no
// question.
std::vector<std::string> MistakesInAnswers(const Plan& plan, const TerminalOperator& person,
                                           const std::string& answers);

// Tells all mistakes, or that there is none. Throws PlanError, and UsageError for answers that do not fit.
ExitStatus CheckPlan(const PlanQuestion& question);

// Tells the steps with their limits; variables need no value. Throws PlanError.
ExitStatus ListPlan(const PlanQuestion& question);

}  // namespace station
