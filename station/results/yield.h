// How good the phones and the line are: yield, failing steps, and how far measurements are from their limits.
// All of it is about runs that say whether a phone is good; those that were aborted or interrupted, or that a
// wrong plan ended, do not.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "station/results/history.h"

namespace station {

enum class YieldBy { Plan, Day, Hour, Station };

// A phone counts once for each plan. Runs of unknown phones count as one phone each.
struct YieldRow {
  std::string group;
  std::int64_t runs = 0;
  std::int64_t phones = 0;           // tested in this group
  std::int64_t passed = 0;           // of these, in their last run here
  std::int64_t first_tested = 0;     // whose first run ever of the plan is in this group
  std::int64_t first_passed = 0;     // of these, in that run
  std::int64_t without_verdict = 0;  // runs that do not count above
};
// In percent; nothing without a phone.
std::optional<double> FirstPassYield(const YieldRow& row);
std::optional<double> FinalYield(const YieldRow& row);

// Each throws ResultsError.
std::vector<YieldRow> Yields(Connection& connection, const RunFilter& filter, YieldBy by);

struct FailingStep {
  std::string plan;
  int number = 0;
  std::string name;
  std::int64_t runs = 0;    // in which it failed
  std::int64_t phones = 0;  // on which
};
// The most frequent first.
std::vector<FailingStep> FailingSteps(Connection& connection, const RunFilter& filter);

// A measurement with limits over the runs. The spread is the sample's standard deviation; it takes two
// values, and the indices of capability take a spread that is not 0. Cp takes both limits.
struct MeasurementStatistics {
  std::string plan;
  int number = 0;
  std::string step;
  std::string reading;
  std::string unit;
  std::optional<double> minimum;
  std::optional<double> maximum;
  std::int64_t count = 0;
  double mean = 0;
  double squares = 0;  // the sum of the squared distances from the mean
  double lowest = 0;
  double highest = 0;
  std::vector<std::int64_t>
      definitions;  // in plan_measurements: a plan that was changed elsewhere has a new one
};
std::optional<double> Spread(const MeasurementStatistics& one);
std::optional<double> Cp(const MeasurementStatistics& one);
std::optional<double> Cpk(const MeasurementStatistics& one);
// With fewer values, an index of capability says little.
constexpr std::int64_t ENOUGH_VALUES = 30;

std::vector<MeasurementStatistics> Statistics(Connection& connection, const RunFilter& filter);

struct TrendPoint {
  std::string run;
  std::string phone;
  std::int64_t started = 0;
  double value = 0;
  StoredVerdict verdict = StoredVerdict::Passed;
};
// The values that Statistics() counts for the measurement with these definitions, in the newest `most` runs
// of its plans; the newest first.
std::vector<TrendPoint> Trend(Connection& connection, const RunFilter& filter,
                              const std::vector<std::int64_t>& definitions, std::size_t most = 1000);

}  // namespace station
