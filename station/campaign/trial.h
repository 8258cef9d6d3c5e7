// One trial of a campaign: a phone with a fault, and what the plan says about it.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "station/campaign/faults.h"
#include "station/plan/runner.h"

namespace station {

// What all phones of a campaign have in common.
struct TrialSetup {
  std::string plan_file;
  std::map<std::string, std::string> variables;
  std::string phonesim;
  std::vector<std::vector<std::string>> preparations;  // the tool's command lines, before the fault
  std::chrono::milliseconds time_limit{0};             // of the plan
  std::string plan_sha256 = {};                        // of the good run: the file must stay as it was
};

struct TroubledStep {
  std::string name;
  std::string verdict;
  std::string message;
};

struct Trial {
  std::string fault;
  bool noticed = false;
  std::vector<TroubledStep> steps = {};  // that did not pass
  double seconds = 0;
};

// The good phone: its run, and its journal.
struct GoodRun {
  PlanResult result;
  std::vector<std::string> journal;  // lines of JSON
  std::size_t started_at = 0;        // how many of the lines are the phone's start and its preparation
  std::string defects;               // what phonesim lists
};

// Boots a phone with the given name, and runs the plan. Both throw UsageError, PlanError and Aborted.
GoodRun RunGoodPhone(const TrialSetup& setup, const std::string& name);
Trial TryFault(const TrialSetup& setup, const Fault& fault, const std::string& name);

}  // namespace station
