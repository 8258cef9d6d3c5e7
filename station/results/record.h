// What is kept of a run, and the storing of it. Every function here may be called again with the same
// content, by another process too: what is there already is not stored twice.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "station/plan/runner.h"
#include "station/results/connection.h"

namespace station {

// The verdicts' codes in the tables.
enum class StoredVerdict : std::uint8_t {
  Skipped = 0,
  Passed = 1,
  Incomplete = 2,
  Failed = 3,
  NoLink = 4,
  PlanWrong = 5,
  Aborted = 6,
  Interrupted = 7,  // the program that ran it ended without an end of the run
  Running = 8,
  OutputLost = 9,
};

StoredVerdict ToStored(Verdict verdict);

// A run that was interrupted, or that still goes on, counts as aborted.
Verdict FromStored(StoredVerdict verdict);

// "passed", "device failure", … as in the reports, and "interrupted" and "running".
std::string StoredVerdictWord(StoredVerdict verdict);

// What is known when a run starts. Times are milliseconds since 1970.
struct RunStart {
  std::string uuid;  // of NewRunId
  std::string plan;
  std::string plan_file = {};
  std::string plan_sha256 = {};
  std::string serial = {};  // the plan's variable of this name; empty if it has none
  std::string identity = {};
  std::string address = {};
  std::string station = {};
  std::string person = {};
  std::string tool_version = {};
  std::string port = {};
  std::string slot = {};     // of the line or the configuration; empty without one
  std::string process = {};  // of ThisProcess
  std::int64_t started = 0;
  std::vector<std::pair<std::string, std::string>> variables = {};
};

struct StoredValue {
  std::string reading;
  std::string unit = {};
  std::optional<double> value = {};  // of a number
  std::string text = {};             // of anything else
  std::optional<double> minimum = {};
  std::optional<double> maximum = {};
  std::string stated = {};  // another limit, as the plan has it
  StoredVerdict verdict = StoredVerdict::Skipped;
};

struct StoredFile {
  std::string name;
  std::string type;
  std::string content;
};

struct StoredAnswer {
  std::string reply;
  std::string by;
  std::int64_t at = 0;
};

struct StoredStep {
  int number = 0;  // from 1
  std::string name;
  std::string work = {};  // the operation, or "wait", "question" or "program"
  std::string question = {};
  StoredVerdict verdict = StoredVerdict::Skipped;
  int attempts = 0;
  std::int64_t microseconds = 0;
  std::string message = {};
  std::vector<StoredValue> values = {};
  std::optional<StoredAnswer> answer = {};
  std::vector<StoredFile> files = {};
};

struct RunEnd {
  StoredVerdict verdict = StoredVerdict::Passed;
  std::int64_t ended = 0;
  std::int64_t microseconds = 0;
  std::int64_t microseconds_waited = 0;
  std::string identity = {};  // as it was read from the phone; empty if it was not
  std::string address = {};
  std::vector<std::pair<std::string, std::string>> versions = {};
  std::string executable = {};
  std::string executable_sha256 = {};
  std::vector<StoredFile> files = {};  // of the whole run: trace, journal
};

// A UUID of version 7: texts of later runs sort after those of earlier ones.
std::string NewRunId();

std::int64_t MillisecondsNow();

// What a plan's run has to say at its start. The station, person and tool are the caller's.
RunStart StartOf(const Plan& plan, const std::string& port, const Origin& origin,
                 const std::string& uuid = NewRunId());
StoredStep StepOf(std::size_t index, const StepResult& step);
RunEnd EndOf(const PlanResult& result);

// Adds a file of this computer; one that cannot be read is noted in its place.
void AttachFile(RunEnd& end, const std::string& path);

// Stores runs in one database. Remembers the keys of the plan's steps and readings, which are the same for
// many runs. Each function throws ResultsError.
class RunStore {
 public:
  explicit RunStore(Connection& connection) : connection_(connection) {}

  struct Keys {
    std::int64_t run = 0;
    std::int64_t plan = 0;
  };

  // The run is "running" from now on, unless it is known already.
  Keys Start(const RunStart& start);
  // Steps of one run, in few statements: each is a way to the server and back.
  void Steps(const Keys& keys, std::span<const StoredStep> steps);
  void End(const Keys& keys, const RunEnd& end);

  // After a transaction that was not committed: the keys that it made are not there.
  void Forget();

 private:
  std::int64_t PlanKey(const RunStart& start);
  std::int64_t StepKey(std::int64_t plan, const StoredStep& step);
  std::int64_t ValueKey(std::int64_t step, const StoredValue& value);
  void Files(const Keys& keys, int step, const std::vector<StoredFile>& files);

  Connection& connection_;
  std::int64_t known_plan_ = 0;  // whose steps and readings are in the maps
  std::map<std::tuple<int, std::string, std::string, std::string>, std::int64_t> steps_;
  std::map<std::tuple<std::int64_t, std::string, std::string, std::string>, std::int64_t> values_;
};

}  // namespace station
