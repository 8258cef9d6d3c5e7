// How long it takes to store a run of the factory plan, and to ask for runs among many, in SQLite and in a
// PostgreSQL server of this program's own. Fails if a question goes through all runs, or if the stations that
// write while the server is restarted lose something.
//   results_benchmark [RUNS] [SQLite|PostgreSQL]
#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <set>

#include "benchmarks/factory_runs.h"
#include "benchmarks/figures.h"
#include "benchmarks/many_stations.h"
#include "station/results/run_recorder.h"
#include "station/results/schema.h"
#include "station/results/yield.h"
#include "tests/station/scripted_phone.h"
#include "tests/station/whole_tables.h"

namespace {

using namespace station;
namespace fs = std::filesystem;

constexpr int STATIONS = 8;
constexpr int RUNS_OF_A_STATION = 100;
constexpr std::int64_t LARGE = 100'000;  // runs

bool failed = false;

// The median of some times, in milliseconds.
void Print(const std::string& what, int times, const std::function<void(int)>& work,
           std::optional<double> goal = {}) {
  std::vector<double> taken;
  for (int i = 0; i < times; ++i) taken.push_back(1000 * Seconds([&] { work(i); }));
  const double median = Median(taken);
  fmt::print("  {:<42} {:>10.2f} ms{}\n", what, median,
             !goal ? "" : fmt::format("   under {:g} {}", *goal, median < *goal ? "met" : "MISSED"));
  fflush(stdout);
}

std::int64_t DatabaseSize(Connection& connection) {
  const bool server = connection.Address().kind == ResultsAddress::Kind::Server;
  return connection
      .Ask(server ? "SELECT pg_database_size(current_database())"
                  : "SELECT page_count * page_size FROM pragma_page_count, pragma_page_size",
           "i")
      .at(0)
      .at(0)
      .number;
}

// Where the bytes of a run are: tables with what belongs to them, and indexes.
void PrintSizes(Connection& connection, std::int64_t runs) {
  const bool server = connection.Address().kind == ResultsAddress::Kind::Server;
  fmt::print("  bytes a run:");
  for (const SqlRow& row : connection.Ask(
           server ? "SELECT relname, pg_total_relation_size(oid) - CASE relkind WHEN 'r' THEN "
                    "pg_indexes_size(oid) "
                    "ELSE 0 END AS bytes FROM pg_class WHERE relkind IN ('r', 'i') AND relnamespace = "
                    "CAST('public' AS regnamespace) ORDER BY bytes DESC LIMIT 12"
                  : "SELECT name, pgsize AS bytes FROM dbstat WHERE aggregate = TRUE ORDER BY bytes DESC "
                    "LIMIT 12",
           "ti"))
    fmt::print(" {} {}", row[0].text, row[1].number / runs);
  fmt::print("\n");
}

// As the recorder stores it when the database is fast: the start, and all the rest. Both are synced.
void StoreRun(Connection& connection, RunStore& store, const FactoryRun& run) {
  RunStore::Keys keys;
  {
    Transaction transaction(connection);
    keys = store.Start(run.start);
    transaction.Commit();
  }
  Transaction transaction(connection);
  store.Steps(keys, run.steps);
  store.End(keys, run.end);
  transaction.Commit();
}

void MeasureStoring(Connection& connection, const FactoryRun& run) {
  const double goal = connection.Address().kind == ResultsAddress::Kind::Server ? 50 : 20;
  RunStore store(connection);
  int change = 0;
  Print("two synced changes of one row", 51, [&](int) {
    for (int i = 0; i < 2; ++i) {
      Transaction transaction(connection);
      connection.Run("UPDATE plans SET file = ?", {std::to_string(change++)});
      transaction.Commit();
    }
  });
  Print(
      fmt::format("a run of {} steps, pictures known", run.steps.size()), 51,
      [&](int i) { StoreRun(connection, store, Another(run, fmt::format("A{}", i))); }, goal);
  const std::int64_t before = DatabaseSize(connection);
  Print(
      "a run with new camera pictures", 51,
      [&](int i) {
        FactoryRun other = Another(run, fmt::format("B{}", i));
        for (StoredStep& step : other.steps) {
          for (StoredFile& file : step.files) {
            if (file.type == "image/jpeg") file.content += std::to_string(i);
          }
        }
        StoreRun(connection, store, other);
      },
      goal);
  fmt::print("  {:<42} {:>10.1f} kB\n", "growth per run with new camera pictures",
             static_cast<double>(DatabaseSize(connection) - before) / 51 / 1000);
  Print("the same through a recorder, with connecting", 21, [&](int i) {
    FactoryRun other = Another(run, fmt::format("C{}", i));
    RunRecorder recorder(connection.Address(), other.start);
    for (const StoredStep& step : other.steps) recorder.Add(step);
    recorder.Finish(other.end);
  });
}

// Prints how each query that `work` asks is answered. One that goes through all rows of a large table fails;
// of a small one that may be the shortest way.
void ShowPlans(Connection& connection, const std::string& what, bool large,
               const std::function<void()>& work) {
  fmt::print("  {}\n", what);
  std::set<std::string> seen;
  connection.ListenToQueries([&](const std::string& query, const std::vector<SqlValue>& values) {
    if (!seen.insert(query).second) return;
    for (const std::string& line : connection.PlanOf(query, values)) {
      const bool wrong = ReadsWholeTable(line);
      failed = failed || (wrong && large);
      fmt::print("    {}{}\n", line, wrong ? "   <-- ALL ROWS" : "");
    }
  });
  work();
  connection.ListenToQueries({});
}

void MeasureQuestions(Connection& connection, std::int64_t runs) {
  const std::string day = GeneratedDay(connection, runs / 2);
  const RunFilter filter{.from_day = day, .to_day = day};
  const std::int64_t definition =
      connection
          .Ask(
              "SELECT d.id FROM plan_measurements d JOIN plan_steps s ON s.id = d.step WHERE s.name = "
              "'Radio hears the station' AND d.reading = 'signal'",
              "i")
          .at(0)
          .at(0)
          .number;
  const struct {
    std::string what;
    int times;
    double goal;
    std::function<void(int)> work;
  } questions[] = {
      {"history of a phone", 51, 50,
       [&](int i) { FindRuns(connection, {.phone = GeneratedSerial(runs / 2 + i)}); }},
      {"the newest 200 runs", 11, 50, [&](int) { FindRuns(connection, {}, 200); }},
      {"yield of a day", 5, 1000, [&](int) { Yields(connection, filter, YieldBy::Plan); }},
      {"failing steps of the day", 5, 1000, [&](int) { FailingSteps(connection, filter); }},
      {"measurements of the day, with Cpk", 5, 1000, [&](int) { Statistics(connection, filter); }},
      {"trend of a reading, the last 1000 runs", 5, 1000, [&](int) { Trend(connection, {}, {definition}); }},
      {"a step's usual time", 5, 50, [&](int) { UsualMicroseconds(connection, "Factory test"); }},
  };
  for (const auto& question : questions) Print(question.what, question.times, question.work, question.goal);
  for (const auto& question : questions)
    ShowPlans(connection, question.what, runs >= LARGE, [&] { question.work(0); });
}

void Measure(const std::string& kind, const ResultsAddress& address, std::int64_t runs,
             std::int64_t runs_a_day, const FactoryRun& run) {
  Connection connection = OpenResults(address);
  const std::int64_t before = DatabaseSize(connection);
  const double seconds = Seconds([&] { GenerateRuns(connection, runs, runs_a_day); });
  const std::int64_t size = DatabaseSize(connection);
  fmt::print("\n{}: {} runs of {} steps, {} a day, generated in {:.0f} s; {:.2f} GB, {:.0f} bytes a run\n",
             kind, runs, run.steps.size(), runs_a_day, seconds, static_cast<double>(size) / 1e9,
             static_cast<double>(size - before) / static_cast<double>(runs));
  PrintSizes(connection, runs);
  MeasureStoring(connection, run);
  MeasureQuestions(connection, runs);
}

}  // namespace

int main(int count, char** words) {
  const std::int64_t runs = count > 1 ? std::stoll(words[1]) : 20'000;
  const std::string only = count > 2 ? words[2] : "";
  const std::int64_t runs_a_day = std::min<std::int64_t>(4000, std::max<std::int64_t>(1, runs / 50));
  if (only != "PostgreSQL") {
    const ResultsAddress address = ParseResultsAddress(TemporaryFolder() + "/results.db");
    const FactoryRun run = RunFactoryPlan(address);
    Measure("SQLite", address, runs, runs_a_day, run);
    fs::remove(address.text);
  }
  if (only != "SQLite" && PostgresqlServer::Missing().empty()) {
    // As it is by default, but with room for the generator's log.
    PostgresqlServer server({"max_wal_size=4GB"});
    const ResultsAddress address = ParseResultsAddress(server.Address());
    const FactoryRun run = RunFactoryPlan(address);
    Measure("PostgreSQL", address, runs, runs_a_day, run);
    failed = !MeasureManyStations(server, run, STATIONS, RUNS_OF_A_STATION) || failed;
  }
  return failed ? 1 : 0;
}
