#include "benchmarks/factory_runs.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "station/results/schema.h"
#include "tests/station/scripted_phone.h"

using namespace station;

namespace {

constexpr std::int64_t FIRST_START = 1'700'000'000'000;
constexpr std::int64_t DAY = 86'400'000;
constexpr std::int64_t PORTION = 10'000;  // runs in one transaction

bool IsServer(const Connection& connection) {
  return connection.Address().kind == ResultsAddress::Kind::Server;
}

std::int64_t Number(Connection& connection, const std::string& query) {
  return connection.Ask(query, "i").at(0).at(0).number;
}

ToolResult Succeed(const std::vector<std::string>& words) {
  ToolResult result = RunProgram(words);
  if (result.status != 0)
    throw std::runtime_error(fmt::format("{} failed: {}{}", words[0], result.output, result.errors));
  return result;
}

class SimulatedPhone {
 public:
  SimulatedPhone() {
    const std::string output = Succeed({PHONESIM_PROGRAM, "--name", name_, "--no-waiting", "start"}).output;
    const std::string label = "host port: ";
    const std::size_t at = output.find(label) + label.size();
    port_ = output.substr(at, output.find('\n', at) - at);
  }
  SimulatedPhone(const SimulatedPhone&) = delete;
  SimulatedPhone& operator=(const SimulatedPhone&) = delete;
  ~SimulatedPhone() {
    RunProgram({PHONESIM_PROGRAM, "--name", name_, "stop"});
  }

  const std::string& Port() const {
    return port_;
  }

 private:
  const std::string name_ = fmt::format("results-{}", getpid());
  std::string port_;
};

void RunPlan(const ResultsAddress& address) {
  const SimulatedPhone phone;
  std::string information = "SN0601234LINE3 SHIFTHW02060115simulated phone";
  information.resize(128);
  Succeed({PHONETEST_PROGRAM,
           "--port",
           phone.Port(),
           "--yes",
           "run",
           PLANS "/factory.json",
           "--answers",
           "pass",
           "--station",
           "S1",
           "--operator",
           "operator",
           "--set",
           "serial=SN0000000",
           "--set",
           "phonesim=" PHONESIM_PROGRAM,
           "--set",
           "factory-info=" + TemporaryFile("factory-info", information),
           "--set",
           "identity=004999010640000",
           "--set",
           "address=00:02:5B:0A:FF:10",
           "--results",
           address.text});
}

std::vector<std::pair<std::string, std::string>> Pairs(const std::string& object) {
  std::vector<std::pair<std::string, std::string>> pairs;
  const auto parsed = nlohmann::ordered_json::parse(object);
  for (const auto& [name, value] : parsed.items()) pairs.emplace_back(name, value.get<std::string>());
  return pairs;
}

FactoryRun Read(Connection& connection) {
  const RunRow row = FindRuns(connection, {}, 1).at(0);
  FactoryRun run{.start = {.uuid = row.uuid,
                           .plan = row.plan,
                           .plan_sha256 = row.plan_sha256,
                           .serial = row.serial,
                           .identity = row.identity,
                           .address = row.address,
                           .station = row.station,
                           .person = row.person,
                           .tool_version = row.tool_version,
                           .port = row.port,
                           .slot = row.slot,
                           .started = row.started,
                           .variables = Pairs(row.variables)},
                 .steps = StepsOfRun(connection, row.key),
                 .end = {.verdict = row.verdict,
                         .ended = row.ended,
                         .microseconds = row.microseconds,
                         .identity = row.identity,
                         .address = row.address,
                         .versions = Pairs(row.versions),
                         .executable_sha256 = row.executable_sha256}};
  for (const AttachmentRow& file : AttachmentsOfRun(connection, row.key)) {
    for (StoredStep& step : run.steps) {
      if (step.number == file.step)
        step.files.push_back({file.name, file.type, connection.Content(file.sha256).value_or("")});
    }
  }
  return run;
}

// Adds rows for the runs r of the range, each made after one of the rows o of the run that is copied.
void Copy(Connection& connection, const std::string& table, const std::string& columns,
          const std::string& values, const std::string& order, const std::string& range) {
  connection.Run(
      fmt::format("INSERT INTO {0} ({1}) SELECT {2} FROM runs r CROSS JOIN {0} o "
                  "WHERE {3} ORDER BY {4}",
                  table, columns, values, range, order));
}

// The phone of run n is n, or n - 1 when that one failed.
std::string PhoneOf(const char* number) {
  return fmt::format("({0} - CASE WHEN {0} % 10 = 1 THEN 1 ELSE 0 END)", number);
}

// Runs first + 1 to last, in one transaction.
void GeneratePortion(Connection& connection, std::int64_t pattern, std::int64_t first, std::int64_t last,
                     std::int64_t runs_a_day) {
  const bool server = IsServer(connection);
  const std::int64_t steps =
      Number(connection, fmt::format("SELECT count(*) FROM steps WHERE run = {}", pattern));
  const std::string numbers =
      server
          ? fmt::format("SELECT CAST(n AS BIGINT) AS n FROM generate_series({}, {}) AS g(n)", first + 1, last)
          : fmt::format(
                "WITH RECURSIVE g(n) AS (SELECT {} UNION ALL SELECT n + 1 FROM g WHERE n < {}) "
                "SELECT n FROM g",
                first + 1, last);
  const auto digits = [&](const std::string& number, int count) {
    return server ? fmt::format("lpad(CAST({} AS TEXT), {}, '0')", number, count)
                  : fmt::format("printf('%0{}d', {})", count, number);
  };
  const std::string day = server ? "to_char(to_timestamp({0} / 1000) AT TIME ZONE 'UTC', 'YYYY-MM-DD')"
                                 : "date({0} / 1000, 'unixepoch')";
  // Whole days, each with the same number of runs.
  const std::string started = fmt::format("({} + n / {} * {} + n % {} * {})", FIRST_START - FIRST_START % DAY,
                                          runs_a_day, DAY, runs_a_day, DAY / runs_a_day);
  Transaction transaction(connection);
  connection.Run(fmt::format(
      "INSERT INTO runs (id, uuid, plan, phone, serial, identity, address, station, operator, port, slot, "
      "tool, "
      "process, variables, versions, executable, executable_sha256, started, day, hour, heard, ended, "
      "microseconds, microseconds_waited, verdict) "
      "SELECT {0} + n, '00000000-0000-7000-8000-' || {1}, plan, 'P' || {2}, 'P' || {2}, '0049' || {3}, "
      "'00:02:' || {2}, 'S' || CAST(n % 8 AS TEXT), operator, port, slot, tool, process, variables, "
      "versions, "
      "executable, executable_sha256, {4}, {5}, n % {6} * 24 / {6}, {4} + 6400, {4} + 6400, "
      "microseconds + n % 999983, microseconds_waited, CASE WHEN n % 10 = 0 THEN 3 ELSE 1 END "
      "FROM runs, ({7}) AS many WHERE id = {0}",
      pattern, digits("n", 12), digits(PhoneOf("n"), 7), digits(PhoneOf("n"), 11), started,
      fmt::format(fmt::runtime(day), started), runs_a_day, numbers));
  const std::string range =
      fmt::format("r.id BETWEEN {} AND {} AND o.run = {}", pattern + first + 1, pattern + last, pattern);
  const std::string failing = fmt::format("r.verdict = 3 AND o.number = 1 + r.id / 10 % {}", steps);
  Copy(connection, "steps", "run, number, definition, verdict, attempts, microseconds, message",
       fmt::format("r.id, o.number, o.definition, CASE WHEN {0} THEN 3 ELSE o.verdict END, o.attempts, "
                   "o.microseconds + o.microseconds * ((r.id * 31 + o.number * 17) % 200) / 1000, "
                   "CASE WHEN {0} THEN 'the value is 1, below 3000' ELSE o.message END",
                   failing),
       "r.id, o.number", range);
  Copy(connection, "measurements", "run, step, number, definition, value, text, stated, verdict",
       "r.id, o.step, o.number, o.definition, o.value * (1 + (r.id * 7919 + o.step * 104729) % 2001 * "
       "0.00001), "
       "o.text, o.stated, o.verdict",
       "r.id, o.step, o.number", range);
  Copy(connection, "answers", "run, step, reply, answered_by, answered",
       "r.id, o.step, o.reply, o.answered_by, r.started + 1000 * o.step", "r.id, o.step", range);
  Copy(connection, "attachments", "run, step, name, type, sha256", "r.id, o.step, o.name, o.type, o.sha256",
       "r.id, o.step, o.name", range);
  transaction.Commit();
}

}  // namespace

FactoryRun RunFactoryPlan(const ResultsAddress& address) {
  RunPlan(address);
  Connection connection = OpenResults(address);
  return Read(connection);
}

FactoryRun Another(const FactoryRun& run, const std::string& serial) {
  FactoryRun other = run;
  other.start.uuid = NewRunId();
  other.start.serial = serial;
  other.start.started = MillisecondsNow();
  other.end.ended = other.start.started + other.end.microseconds / 1000;
  return other;
}

void GenerateRuns(Connection& connection, std::int64_t count, std::int64_t runs_a_day) {
  const std::int64_t pattern = Number(connection, "SELECT max(id) FROM runs");
  const bool server = IsServer(connection);
  // The keys are right by construction, and a generator that is interrupted is begun again.
  connection.Run(server ? "SET session_replication_role = replica" : "PRAGMA foreign_keys = OFF");
  connection.Run(server ? "SET synchronous_commit = off" : "PRAGMA synchronous = OFF");
  for (std::int64_t first = 0; first < count; first += PORTION)
    GeneratePortion(connection, pattern, first, std::min(first + PORTION, count), runs_a_day);
  connection.Run(server ? "SET session_replication_role = DEFAULT" : "PRAGMA foreign_keys = ON");
  connection.Run(server ? "SET synchronous_commit = DEFAULT" : "PRAGMA synchronous = FULL");
  if (!server) return;
  connection.Ask(
      "SELECT CAST(setval(pg_get_serial_sequence('runs', 'id'), (SELECT max(id) FROM runs)) AS TEXT)", "t");
  connection.Run("ANALYZE");  // the server's own housekeeping does it within minutes
}

std::string GeneratedSerial(std::int64_t number) {
  return fmt::format("P{:07}", number - (number % 10 == 1 ? 1 : 0));
}

std::string GeneratedDay(Connection& connection, std::int64_t number) {
  return connection.Ask("SELECT day FROM runs WHERE phone = ?", "t", {GeneratedSerial(number)})
      .at(0)
      .at(0)
      .text;
}
