// Finding runs again: by phone, plan, station and day, with all that was stored of them.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "station/results/connection.h"
#include "station/results/record.h"

namespace station {

// What is empty selects nothing out. Days are those of the stations, as "2026-11-25", and belong to the
// range.
struct RunFilter {
  std::string from_day = {};
  std::string to_day = {};
  std::string plan = {};  // by name
  std::string station = {};
  std::string phone = {};  // a serial number, identity or address
};

struct RunRow {
  std::int64_t key = 0;
  std::string uuid;
  std::string plan;
  std::string plan_sha256;
  std::string phone;
  std::string serial;
  std::string identity;
  std::string address;
  std::string station;
  std::string person;
  std::string port;
  std::string slot;  // empty without one
  std::string tool_version;
  std::string variables;  // a JSON object
  std::string versions;   // the phone's, a JSON object
  std::string executable_sha256;
  std::int64_t started = 0;  // in milliseconds since 1970
  std::int64_t ended = 0;    // 0 while it runs
  std::int64_t microseconds = 0;
  StoredVerdict verdict = StoredVerdict::Running;
};

struct AttachmentRow {
  int step = 0;  // 0 for the whole run
  std::string name;
  std::string type;
  std::string sha256;
  std::int64_t size = 0;
};

// A condition on "runs r", beginning with " AND", and its values.
struct Condition {
  std::string text;
  std::vector<SqlValue> values;
};
Condition ConditionOf(const RunFilter& filter);

// The newest first, and at most `most`. Throws ResultsError, as all of these do.
std::vector<RunRow> FindRuns(Connection& connection, const RunFilter& filter, std::size_t most = 1000);
// In the order in which they were stored: those after the run with the key `after`.
std::vector<RunRow> FindRunsAfter(Connection& connection, const RunFilter& filter, std::int64_t after,
                                  std::size_t most);
std::optional<RunRow> FindRun(Connection& connection, const std::string& uuid);

// The last run of a plan on a phone that says whether the phone is good: neither aborted nor interrupted, nor
// a plan's mistake. The last is the one that was stored last, since a station's clock may have been set back;
// only a run that had to wait in a spool has its place by the time of its start.
std::optional<RunRow> LastJudgedRun(Connection& connection, const std::string& phone,
                                    const std::string& plan);

// Sorts a run that waited in a spool in among the runs of its phone.
void PlaceLateRun(Connection& connection, std::int64_t run);

// In alphabetical order.
std::vector<std::string> PlanNames(Connection& connection);
std::vector<std::string> StationNames(Connection& connection);

// A text that differs from an earlier one if a run of any station has begun or ended since.
std::string NewestChange(Connection& connection);

// With their readings and answers, and without files.
std::vector<StoredStep> StepsOfRun(Connection& connection, std::int64_t run);
std::vector<AttachmentRow> AttachmentsOfRun(Connection& connection, std::int64_t run);

// How long each step of a plan takes, by its number: the mean of its last runs that passed.
std::map<int, std::int64_t> UsualMicroseconds(Connection& connection, const std::string& plan);

struct Difference {
  std::string step;     // empty for what is about the whole run
  std::string reading;  // "verdict", a reading's name, "version system"
  std::string before;   // empty if there was none
  std::string after;
};

// What two runs have different, in the order of the later one's steps.
std::vector<Difference> CompareRuns(Connection& connection, const RunRow& before, const RunRow& after);

// A reading's value for a person.
std::string ValueText(const StoredValue& value);

}  // namespace station
