// Runs a plan on one or several phones at the same time, with progress, reports and one verdict.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "station/commands/errors.h"
#include "station/results/address.h"

namespace station {

struct PlanOrder {
  std::string plan_file;
  std::vector<std::string> ports;
  std::map<std::string, std::string> slots;  // by port, for those that have one
  std::map<std::string, std::string> variables;
  std::string report_folder;  // empty for none
  std::string
      reports_folder;   // without a report folder: gets a new folder for this run; empty for no report files
  std::string station;  // where it is run
  std::string person;   // the operator; may be empty
  std::string trace_file;  // empty for no trace; each of several phones has its own
  std::optional<std::chrono::milliseconds> answer_time;
  std::string answers;  // of --answers; empty if the operator answers
  bool json = false;
  std::optional<ResultsAddress> results;  // the database that the runs are stored in
  std::vector<std::string> attached;      // files that are stored with each run when it has ended
  std::string serial = {};                // of the phone; ExecutePlan takes it from the variables
  std::string retest_reason;              // why a phone that has passed is tested again; may be empty
  std::size_t reserve = 0;                // size of the station's block of each pool that the plan draws from
};

// Throws PlanError and UsageError before anything is sent, and OutputLost at the end if a run could be kept
// neither in the database nor in its spool.
ExitStatus ExecutePlan(const PlanOrder& order);

}  // namespace station
