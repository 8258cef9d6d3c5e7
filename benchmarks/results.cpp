// How long it takes to store a run of the factory plan and to ask for runs among many. The database is filled
// with the verdicts, times and readings of all 69 steps of each run by statements that work on whole tables.
//   results_benchmark ADDRESS [RUNS]
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <functional>

#include "station/results/history.h"
#include "station/results/schema.h"
#include "station/results/yield.h"

namespace {

using namespace station;

constexpr int STEPS = 69;
constexpr int RUNS_A_DAY = 4000;
constexpr std::int64_t FIRST_START = 1'700'000'000'000;

StoredStep StepNumber(int number) {
  StoredStep step{.number = number,
                  .name = fmt::format("Step {} of the factory plan", number),
                  .work = "command",
                  .verdict = StoredVerdict::Passed,
                  .attempts = 1,
                  .microseconds = 90'000};
  step.values.push_back({.reading = "value",
                         .unit = "mV",
                         .value = 3700.0 + number,
                         .minimum = number % 10 == 0 ? std::optional(3000.0) : std::nullopt,
                         .verdict = number % 10 == 0 ? StoredVerdict::Passed : StoredVerdict::Skipped});
  if (number % 6 == 0) step.answer = {"pass", "operator", FIRST_START};
  return step;
}

RunStart StartNumber(std::int64_t number) {
  return {.uuid = NewRunId(),
          .plan = "Factory test",
          .plan_sha256 = std::string(64, 'a'),
          .serial = fmt::format("SN{:07}", number),
          .identity = fmt::format("{:015}", number),
          .station = "S1",
          .person = "operator",
          .tool_version = "1.0.0",
          .port = "/dev/ttyACM0",
          .process = "boot/pid:[1]/1/1",
          .started = MillisecondsNow()};
}

RunStore::Keys StoreWhole(Connection& connection, RunStore& store, std::int64_t number) {
  RunStore::Keys keys;
  {
    Transaction transaction(connection);
    keys = store.Start(StartNumber(number));
    transaction.Commit();
  }
  Transaction transaction(connection);
  std::vector<StoredStep> steps;
  for (int step = 1; step <= STEPS; ++step) steps.push_back(StepNumber(step));
  store.Steps(keys, steps);
  store.End(keys, {.ended = MillisecondsNow(), .microseconds = 6'400'000});
  transaction.Commit();
  return keys;
}

// Copies the run with this key `count` times: a tenth of the phones fail one step, and pass later.
void Fill(Connection& connection, std::int64_t pattern, std::int64_t count) {
  const bool server = connection.Address().kind == ResultsAddress::Kind::Server;
  if (server) connection.Run("SET session_replication_role = replica");  // the keys are right by construction
  const std::string numbers = server ? fmt::format("SELECT n FROM generate_series(1, {}) AS g(n)", count)
                                     : fmt::format(
                                           "WITH RECURSIVE g(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM g "
                                           "WHERE n < {}) SELECT n FROM g",
                                           count);
  const std::string digits =
      server ? "lpad(CAST(n AS TEXT), 7, '0')" : "substr('0000000' || CAST(n AS TEXT), -7)";
  const std::string day = server ? "to_char(to_timestamp(1700000000 + (n / 4000) * 86400), 'YYYY-MM-DD')"
                                 : "date(1700000000 + (n / 4000) * 86400, 'unixepoch')";
  Transaction transaction(connection);
  connection.Run(fmt::format(
      "INSERT INTO runs (id, uuid, plan, phone, serial, identity, address, station, operator, port, tool, "
      "process, "
      "variables, versions, executable, executable_sha256, started, day, hour, heard, ended, microseconds, "
      "microseconds_waited, verdict) SELECT {0} + n, 'run' || {1}, plan, 'P' || {1}, 'P' || {1}, '49' || "
      "{1}, '', "
      "'S' || CAST(n % 8 AS TEXT), operator, port, tool, process, variables, versions, executable, "
      "executable_sha256, "
      "{2} + n * 21600, {3}, CAST((n % 4000) / 167 AS INTEGER), heard, {2} + n * 21600 + 6400, microseconds, "
      "0, "
      "CASE WHEN n % 10 = 0 THEN 3 ELSE 1 END FROM runs, ({4}) AS many WHERE id = {0}",
      pattern, digits, FIRST_START, day, numbers));
  connection.Run(
      fmt::format("INSERT INTO steps (run, number, definition, verdict, attempts, microseconds, message) "
                  "SELECT r.id, s.number, "
                  "s.definition, CASE WHEN r.verdict = 3 AND s.number = 1 + r.id % 69 THEN 3 ELSE 1 END, 1, "
                  "s.microseconds + r.id % 977, CASE WHEN r.verdict = 3 AND s.number = 1 + r.id % 69 THEN "
                  "'value is 1, below 3000' END "
                  "FROM runs r, steps s WHERE r.id > {0} AND s.run = {0} ORDER BY r.id, s.number",
                  pattern));
  connection.Run(
      fmt::format("INSERT INTO measurements (run, step, number, definition, value, verdict) SELECT r.id, "
                  "m.step, m.number, "
                  "m.definition, m.value + r.id % 101, m.verdict FROM runs r, measurements m WHERE r.id > "
                  "{0} AND m.run = {0} "
                  "ORDER BY r.id, m.step",
                  pattern));
  connection.Run(
      fmt::format("INSERT INTO answers (run, step, reply, answered_by, answered) SELECT r.id, a.step, "
                  "a.reply, a.answered_by, "
                  "r.started FROM runs r, answers a WHERE r.id > {0} AND a.run = {0} ORDER BY r.id, a.step",
                  pattern));
  transaction.Commit();
  if (server) {
    connection.Run("SET session_replication_role = DEFAULT");
    connection.Ask(
        "SELECT CAST(setval(pg_get_serial_sequence('runs', 'id'), (SELECT max(id) FROM runs)) AS TEXT)", "t");
  }
  connection.Run("ANALYZE");
}

// The middle of `count` times, in milliseconds.
double Median(int count, const std::function<void(int)>& work) {
  std::vector<double> times;
  for (int i = 0; i < count; ++i) {
    const auto start = std::chrono::steady_clock::now();
    work(i);
    times.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
  }
  std::ranges::nth_element(times, times.begin() + count / 2);
  return times[static_cast<std::size_t>(count / 2)];
}

void Explain(Connection& connection, const char* what, const std::string& query) {
  const bool server = connection.Address().kind == ResultsAddress::Kind::Server;
  fmt::print("{}:\n", what);
  for (const SqlRow& row :
       connection.Ask((server ? "EXPLAIN " : "EXPLAIN QUERY PLAN ") + query, server ? "t" : "iiit"))
    fmt::print("    {}\n", row.back().text);
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

}  // namespace

int main(int count, char** words) {
  if (count < 2) return 2;
  const std::int64_t runs = count > 2 ? std::stoll(words[2]) : 20'000;
  Connection connection = OpenResults(ParseResultsAddress(words[1]));
  RunStore store(connection);
  const std::int64_t pattern = StoreWhole(connection, store, 0).run;
  const std::int64_t before = DatabaseSize(connection);
  const double filling = Median(1, [&](int) { Fill(connection, pattern, runs); });
  fmt::print("{} runs generated in {:.1f} s, {:.0f} bytes a run\n", runs, filling / 1000,
             static_cast<double>(DatabaseSize(connection) - before) / static_cast<double>(runs));
  fmt::print("a run of {} steps stored      {:8.2f} ms\n", STEPS,
             Median(21, [&](int i) { StoreWhole(connection, store, 10 + i); }));
  fmt::print("history of a phone            {:8.2f} ms\n", Median(21, [&](int i) {
               FindRuns(connection, {.phone = fmt::format("P{:07}", runs / 2 + i)});
             }));
  const std::string day =
      connection.Ask(fmt::format("SELECT day FROM runs WHERE id = {}", pattern + runs / 2), "t")
          .at(0)
          .at(0)
          .text;
  const RunFilter filter{.from_day = day, .to_day = day};
  fmt::print("yield of a day of {} runs   {:8.2f} ms\n", RUNS_A_DAY,
             Median(5, [&](int) { Yields(connection, filter, YieldBy::Plan); }));
  fmt::print("failing steps of the day      {:8.2f} ms\n",
             Median(5, [&](int) { FailingSteps(connection, filter); }));
  fmt::print("measurements of the day       {:8.2f} ms\n",
             Median(5, [&](int) { Statistics(connection, filter); }));
  Explain(connection, "history",
          "SELECT id FROM runs r WHERE r.id IN (SELECT id FROM runs WHERE phone = 'P1' UNION "
          "SELECT id FROM runs WHERE serial = 'P1' AND serial <> '' UNION "
          "SELECT id FROM runs WHERE identity = 'P1' AND identity <> '' UNION "
          "SELECT id FROM runs WHERE address = 'P1' AND address <> '')");
  Explain(connection, "day",
          fmt::format("SELECT verdict, phone FROM runs WHERE day >= '{0}' AND day <= '{0}'", day));
  return 0;
}
