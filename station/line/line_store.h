// What a line needs from the place where runs are kept. The line goes on while that place cannot be reached:
// runs are kept aside then, and only the look into the past fails.
#pragma once

#include <chrono>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "station/plan/runner.h"
#include "station/results/plan_numbers.h"

namespace station {

// The past cannot be looked up now.
class StoreAway : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// How a phone's newest run of a plan ended.
struct PastRun {
  Verdict verdict = Verdict::Skipped;
  std::time_t started = 0;
  std::string station;
};

// Looks it up by serial number and plan; nothing if there is no such run. Throws StoreAway.
using PastRuns = std::function<std::optional<PastRun>(const std::string& serial, const std::string& plan)>;

// What is stored of a run, as far as the operator sees it.
struct LineRun {
  struct Failure {
    std::string step;
    std::string message;
  };

  std::string id;
  Verdict verdict = Verdict::Skipped;
  std::vector<Failure> failures = {};  // the steps that did not pass, in the plan's order
  std::string problem = {};            // a sentence if it could not be stored now
};

// What is known of a run when it begins.
struct LineRunStart {
  std::string id;  // of NewRunId
  std::string serial;
  const Plan* plan = nullptr;
  std::string port;
  std::string slot;
  Origin origin;
  std::string retest_reason;
};

// A run from its beginning to its end. If it is destroyed without an end, the run shows as interrupted.
class LineRunWriter {
 public:
  virtual ~LineRunWriter() = default;
  virtual void Step(std::size_t number, const StepResult& step) = 0;
  // Stores the whole result and reads back what is stored.
  virtual LineRun End(const PlanResult& result) = 0;
};

class LineStore {
 public:
  virtual ~LineStore() = default;

  // Throws StoreAway.
  virtual std::optional<PastRun> NewestRun(const std::string& serial, const std::string& plan) = 0;

  // The numbers that the plan draws for this phone, beside the variables that it has. Throws PlanError.
  virtual std::unique_ptr<PlanNumbers> Draw(const LineRunStart& start, const std::string& plan_file,
                                            const std::map<std::string, std::string>& variables,
                                            std::size_t reserve) = 0;

  virtual std::unique_ptr<LineRunWriter> Begin(const LineRunStart& beginning) = 0;

  // How long the plan's steps took before, by their number, from 0; empty if the database cannot be asked.
  virtual std::map<std::size_t, std::chrono::microseconds> StepTimes(const std::string& plan) = 0;

  struct Condition {
    bool reachable = true;
    std::size_t waiting = 0;  // runs that are kept aside
    std::string where;        // "SQLite: …/results.db", without a password
    std::size_t changes = 0;  // counts when a run of any station has begun or ended
  };
  virtual Condition State() = 0;
};

}  // namespace station
