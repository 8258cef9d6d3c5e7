#include "station/line/results_store.h"

#include <fmt/format.h>

#include "station/results/history.h"
#include "station/results/record.h"
#include "station/results/run_recorder.h"
#include "station/results/running.h"
#include "station/results/schema.h"
#include "station/results/spool.h"

namespace station {

namespace {

constexpr std::chrono::seconds DATABASE_LOOK{2};

LineRun RunOf(const std::string& id, StoredVerdict verdict, const std::vector<StoredStep>& steps) {
  LineRun run{.id = id, .verdict = FromStored(verdict)};
  for (const StoredStep& step : steps) {
    if (step.verdict == StoredVerdict::Passed || step.verdict == StoredVerdict::Skipped) continue;
    run.failures.push_back({step.name, step.message});
  }
  return run;
}

class Writer : public LineRunWriter {
 public:
  Writer(const ResultsAddress& address, const RunStart& start)
      : address_(address), recorder_(address, start) {}

  void Step(std::size_t number, const StepResult& step) override {
    StoredStep stored = StepOf(number, step);
    kept_[stored.number] = stored;
    recorder_.Add(std::move(stored));
  }

  LineRun End(const PlanResult& result) override {
    // Without a link no step is told of.
    for (std::size_t i = 0; i < result.steps.size(); ++i) {
      if (!kept_.contains(static_cast<int>(i) + 1)) Step(i, result.steps[i]);
    }
    const RunEnd end = EndOf(result);
    recorder_.Finish(end);
    const std::string problem = recorder_.Problem();
    if (problem.empty()) {
      if (const auto stored = ReadBack()) return *stored;
    }
    // The spool has what the recorder was given.
    std::vector<StoredStep> steps;
    for (const auto& [number, step] : kept_) steps.push_back(step);
    LineRun run = RunOf(recorder_.RunId(), end.verdict, steps);
    run.problem = recorder_.IsLost() ? "This run could be stored nowhere: " + problem
                                     : "This run is kept on this computer until the results can be reached.";
    return run;
  }

 private:
  std::optional<LineRun> ReadBack() const {
    try {
      Connection connection = OpenResults(address_);
      const auto row = FindRun(connection, recorder_.RunId());
      if (!row) return std::nullopt;
      return RunOf(row->uuid, row->verdict, StepsOfRun(connection, row->key));
    } catch (const ResultsError&) {
      return std::nullopt;
    }
  }

  ResultsAddress address_;
  RunRecorder recorder_;
  std::map<int, StoredStep> kept_;
};

}  // namespace

ResultsStore::ResultsStore(ResultsAddress address) : address_(std::move(address)) {
  condition_.where = address_.text;
  Look();
  watcher_ = std::jthread([this](const std::stop_token& stop) { Watch(stop); });
}

Connection ResultsStore::Connect() const {
  return OpenResults(address_);
}

std::optional<PastRun> NewestRunIn(const ResultsAddress& address, const std::string& serial,
                                   const std::string& plan) {
  try {
    Connection connection = OpenResults(address);
    const auto row = LastJudgedRun(connection, serial, plan);
    if (!row) return std::nullopt;
    return PastRun{FromStored(row->verdict), static_cast<std::time_t>(row->started / 1000), row->station};
  } catch (const ResultsError& error) {
    throw StoreAway(error.what());
  }
}

std::optional<PastRun> ResultsStore::NewestRun(const std::string& serial, const std::string& plan) {
  return NewestRunIn(address_, serial, plan);
}

std::unique_ptr<PlanNumbers> ResultsStore::Draw(const LineRunStart& start, const std::string& plan_file,
                                                const std::map<std::string, std::string>& variables,
                                                std::size_t reserve) {
  std::map<std::string, std::string> given = variables;
  given["serial"] = start.serial;
  return std::make_unique<PlanNumbers>(address_, DrawsOfPlan(plan_file), given, start.id,
                                       start.origin.station, reserve);
}

std::unique_ptr<LineRunWriter> ResultsStore::Begin(const LineRunStart& start) {
  RunStart run = StartOf(*start.plan, start.port, start.origin, start.id);
  run.serial = start.serial;
  run.slot = start.slot;
  if (!start.retest_reason.empty()) run.variables.emplace_back("retest reason", start.retest_reason);
  return std::make_unique<Writer>(address_, run);
}

std::map<std::size_t, std::chrono::microseconds> ResultsStore::StepTimes(const std::string& plan) {
  std::map<std::size_t, std::chrono::microseconds> times;
  try {
    Connection connection = Connect();
    for (const auto& [number, took] : UsualMicroseconds(connection, plan)) {
      times[static_cast<std::size_t>(number - 1)] = std::chrono::microseconds(took);
    }
  } catch (const ResultsError&) {
    // The time left is shown from the second phone on.
  }
  return times;
}

LineStore::Condition ResultsStore::State() {
  const std::lock_guard lock(mutex_);
  return condition_;
}

void ResultsStore::Watch(const std::stop_token& stop) {
  while (!stop.stop_requested()) {
    {
      std::unique_lock lock(mutex_);
      due_.wait_for(lock, stop, DATABASE_LOOK, [] { return false; });
    }
    if (!stop.stop_requested()) Look();
  }
}

void ResultsStore::Look() {
  bool reachable = true;
  std::string newest;
  try {
    Connection connection = Connect();
    MarkInterrupted(connection);
    try {
      RunStore store(connection);
      HandIn(store, connection);
    } catch (const ResultsError&) {
      // A spooled run that is not taken still waits, which the page says; the database may be there.
      connection.Ask("SELECT 1", "i");
    }
    newest = NewestChange(connection);
  } catch (const ResultsError&) {
    reachable = false;
  }
  const std::size_t waiting = SpooledRuns(address_.SpoolFolder());
  const std::lock_guard lock(mutex_);
  condition_.reachable = reachable;
  if (reachable && newest != newest_) {
    newest_ = newest;
    ++condition_.changes;
  }
  condition_.waiting = waiting;
}

}  // namespace station
