// What a test line must know of a plan before a phone is there: the values that it has to ask for, and the
// plan's rules for the line.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "station/plan/plan.h"

namespace station {

struct PlanVariable {
  std::string name;
  std::string help;
  nlohmann::json declaration;  // with its checks: VariableFault
  bool needed = false;         // it has no default and is not drawn, so someone must set it
};

// The plan's "line" object.
struct LineRules {
  std::string serial = {};               // the variable that gets the phone's serial number; may be empty
  std::string serial_pattern = {};       // that a serial number matches as a whole; empty for any
  std::string serial_pattern_help = {};  // the same in words
  std::vector<std::string> requires_plans = {};  // names of plans that the phone must have passed
  bool runs_without_results = false;             // although it is unknown what the phone has passed
  std::vector<std::string> settings = {};        // variables that the line manager sets for all phones
  bool asks_retest_reason = false;               // when a phone is tested again that has passed this plan
};

// What the line demands of a serial number, as a variable's declaration has it: for VariableFault.
nlohmann::json SerialChecks(const LineRules& rules);

// Throws PlanError.
LineRules ReadLineRules(const nlohmann::json& rules, const nlohmann::json& variables);

struct PlanOutline {
  std::string name;
  std::string file;
  std::vector<PlanVariable> variables;
  std::vector<std::string> steps;  // their names, with ${variables} as they are
  LineRules line;
};

// Throws PlanError. The steps are not checked further: that needs the variables' values.
PlanOutline ReadPlanOutline(const std::string& path);

}  // namespace station
