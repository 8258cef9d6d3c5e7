// Runs of the factory plan in a database of results: one that a simulated phone has really run, and any
// number that are made after it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "station/results/history.h"

// With the files of its steps.
struct FactoryRun {
  station::RunStart start;
  std::vector<station::StoredStep> steps;
  station::RunEnd end;
};

// Boots a simulated phone, runs the plan with phonetest into this database, and reads the run. Throws
// std::runtime_error if the plan does not pass.
FactoryRun RunFactoryPlan(const station::ResultsAddress& address);

// The same of another phone, now.
FactoryRun Another(const FactoryRun& run, const std::string& serial);

// Adds `count` runs after the newest one in the database: the verdicts, times, readings, answers and pictures
// of all its steps, with times and readings that vary. One phone in ten fails one step, and passes when it is
// tested again. `runs_a_day` of them have the same day.
void GenerateRuns(station::Connection& connection, std::int64_t count, std::int64_t runs_a_day);

// The serial number and the day of a generated run.
std::string GeneratedSerial(std::int64_t number);
std::string GeneratedDay(station::Connection& connection, std::int64_t number);
