// A test plan: a JSON file (with comments) of steps. A step is an operation of the tool with limits on its
// readings, a wait, a question to the operator, or a program of this computer.
#pragma once

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "station/commands/errors.h"
#include "station/plan/limit.h"
#include "station/tasks/operation.h"

namespace station {

struct Step {
  enum class Kind { Command, Wait, Question, Program };

  Kind kind = Kind::Command;
  std::string name;

  const Operation* operation = nullptr;
  ArgumentValues arguments;
  std::vector<Limit> limits;

  std::chrono::milliseconds wait{0};

  std::string question;

  std::vector<std::string> program;
  bool background = false;  // the program runs during the steps that follow
  std::string picture;      // file with a picture for the report, made by the step

  std::chrono::milliseconds time_limit{0};  // of a question or program
  int retries = 0;
  std::chrono::milliseconds retry_wait{0};
  int repeat = 1;
  bool stops = true;                // a failure ends the plan
  bool always = false;              // also run after a failure has ended the plan
  bool wanted = true;               // its condition is met
  bool missed = false;              // it is not wanted, and the test is incomplete without it
  std::set<std::string> variables;  // the names of those in its texts
};

// A variable whose value is drawn from a pool of numbers if the caller sets none.
struct PoolDraw {
  std::string variable;
  std::string pool;
};

// All mistakes that are in a plan, each with its place.
class PlanMistakes : public PlanError {
 public:
  // The text has a line for each.
  PlanMistakes(const std::string& file, std::vector<std::string> mistakes);

  const std::vector<std::string>& List() const {
    return mistakes_;
  }

 private:
  std::vector<std::string> mistakes_;
};

struct Plan {
  std::string name;
  std::string file;
  std::string sha256;  // of the file, in hexadecimal
  std::vector<Step> steps;
  // In the plan's order, with their values.
  std::vector<std::pair<std::string, std::string>> variables;
};

// Reads and checks a whole plan, so that a mistake in its last step is found before the first one runs.
// `given` are the variables set by the caller; `built_in` are those that every plan has. Throws PlanMistakes.
Plan LoadPlan(const std::string& path, const std::map<std::string, std::string>& given,
              const std::map<std::string, std::string>& built_in);

// The same for a plan that is only checked: a number that it draws stands as ${name} in the steps' texts.
Plan LoadPlanToCheck(const std::string& path, const std::map<std::string, std::string>& given,
                     const std::map<std::string, std::string>& built_in);

// The same for a plan that is only shown: a variable without a value stands as ${name} in the steps' texts,
// and what holds it is not checked.
Plan LoadPlanToShow(const std::string& path, const std::map<std::string, std::string>& given,
                    const std::map<std::string, std::string>& built_in);

// The plan as it stands in its file. Throws PlanError and UsageError.
nlohmann::json ReadPlanFile(const std::string& path);

// The names of the plan's variables as they stand in its file, one after the other. Throws as ReadPlanFile.
std::vector<std::string> VariablesInOrder(const std::string& path);

// What the plan's variables draw. Of a file that is no plan, nothing: LoadPlan says what is wrong with it.
std::vector<PoolDraw> DrawsOfPlan(const std::string& path);

}  // namespace station
