#include "station/results/schema.h"

#include <fmt/format.h>

#include <array>

namespace station {

namespace {

// {key}, {bytes} and {ordered} are the connection's words. A version that has been released is never changed:
// what is new is a version of its own.
constexpr const char* RUNS[] = {
    R"(CREATE TABLE verdicts (code SMALLINT PRIMARY KEY, word TEXT NOT NULL))",
    R"(INSERT INTO verdicts (code, word) VALUES (0, 'skipped'), (1, 'passed'), (2, 'incomplete'),
       (3, 'device failure'), (4, 'link failure'), (5, 'plan error'), (6, 'aborted'), (7, 'interrupted'),
       (8, 'running'))",
    R"(CREATE TABLE plans (id {key}, name TEXT NOT NULL, sha256 TEXT NOT NULL, file TEXT NOT NULL,
       UNIQUE (name, sha256)))",
    // "phone" is what a phone is known by: its serial number, otherwise its identity, otherwise its address.
    R"(CREATE TABLE runs (id {key}, uuid TEXT NOT NULL UNIQUE, plan BIGINT NOT NULL REFERENCES plans,
       phone TEXT NOT NULL, serial TEXT NOT NULL, identity TEXT NOT NULL, address TEXT NOT NULL,
       station TEXT NOT NULL, operator TEXT NOT NULL, port TEXT NOT NULL, tool TEXT NOT NULL,
       process TEXT NOT NULL, variables TEXT NOT NULL, versions TEXT NOT NULL, executable TEXT NOT NULL,
       executable_sha256 TEXT NOT NULL, started BIGINT NOT NULL, day TEXT NOT NULL, hour SMALLINT NOT NULL,
       heard BIGINT NOT NULL, ended BIGINT, microseconds BIGINT, microseconds_waited BIGINT,
       verdict SMALLINT NOT NULL REFERENCES verdicts))",
    "CREATE INDEX runs_phone ON runs (phone, plan, started)",
    "CREATE INDEX runs_serial ON runs (serial) WHERE serial <> ''",
    "CREATE INDEX runs_identity ON runs (identity) WHERE identity <> ''",
    "CREATE INDEX runs_address ON runs (address) WHERE address <> ''",
    "CREATE INDEX runs_day ON runs (day, plan, station, verdict, phone, started)",
    "CREATE INDEX runs_started ON runs (started)",
    "CREATE INDEX runs_running ON runs (heard) WHERE verdict = 8",
    R"(CREATE TABLE plan_steps (id {key}, plan BIGINT NOT NULL REFERENCES plans, number SMALLINT NOT NULL,
       name TEXT NOT NULL, work TEXT NOT NULL, question TEXT NOT NULL,
       UNIQUE (plan, number, name, work, question)))",
    // The widest columns come first, since a server fills up before each wide one.
    R"(CREATE TABLE steps (run BIGINT NOT NULL REFERENCES runs ON DELETE CASCADE, definition BIGINT NOT NULL,
       microseconds BIGINT NOT NULL, attempts INTEGER NOT NULL, number SMALLINT NOT NULL,
       verdict SMALLINT NOT NULL, message TEXT, PRIMARY KEY (run, number)){ordered})",
    "CREATE INDEX steps_not_passed ON steps (run, definition, verdict) WHERE verdict > 1",
    R"(CREATE TABLE plan_measurements (id {key}, step BIGINT NOT NULL REFERENCES plan_steps,
       reading TEXT NOT NULL, unit TEXT NOT NULL, limits TEXT NOT NULL, minimum DOUBLE PRECISION,
       maximum DOUBLE PRECISION, UNIQUE (step, reading, unit, limits)))",
    R"(CREATE TABLE measurements (run BIGINT NOT NULL REFERENCES runs ON DELETE CASCADE,
       definition BIGINT NOT NULL, value DOUBLE PRECISION, step SMALLINT NOT NULL, number SMALLINT NOT NULL,
       verdict SMALLINT NOT NULL, text TEXT, stated TEXT, PRIMARY KEY (run, step, number)){ordered})",
    // Only what has been compared with a limit: few of a run's readings.
    R"(CREATE INDEX measurements_judged ON measurements (run, definition, value)
       WHERE verdict <> 0 AND value IS NOT NULL)",
    R"(CREATE INDEX measurements_trend ON measurements (definition, run, value)
       WHERE verdict <> 0 AND value IS NOT NULL)",
    R"(CREATE TABLE answers (run BIGINT NOT NULL REFERENCES runs ON DELETE CASCADE, step SMALLINT NOT NULL,
       reply TEXT NOT NULL, answered_by TEXT NOT NULL, answered BIGINT NOT NULL,
       PRIMARY KEY (run, step)){ordered})",
    R"(CREATE TABLE contents (sha256 TEXT PRIMARY KEY, size BIGINT NOT NULL, content {bytes} NOT NULL))",
    R"(CREATE TABLE attachments (run BIGINT NOT NULL REFERENCES runs ON DELETE CASCADE,
       step SMALLINT NOT NULL, name TEXT NOT NULL, type TEXT NOT NULL,
       sha256 TEXT NOT NULL REFERENCES contents, PRIMARY KEY (run, step, name)){ordered})",
    "CREATE INDEX attachments_content ON attachments (sha256)",
};

constexpr const char* NUMBERS[] = {
    // "draws" is written first in each transaction that gives numbers out, so that these wait for each other.
    R"(CREATE TABLE pools (name TEXT PRIMARY KEY, kind TEXT NOT NULL, draws BIGINT NOT NULL))",
    R"(CREATE TABLE number_ranges (id {key}, pool TEXT NOT NULL REFERENCES pools, kind TEXT NOT NULL,
       first BIGINT NOT NULL, last BIGINT NOT NULL, next BIGINT NOT NULL))",
    R"(CREATE TABLE numbers (value TEXT PRIMARY KEY, pool TEXT NOT NULL REFERENCES pools, state TEXT NOT NULL,
       phone TEXT NOT NULL, run TEXT NOT NULL, station TEXT NOT NULL, changed BIGINT NOT NULL))",
    "CREATE INDEX numbers_phone ON numbers (pool, phone, changed)",
    "CREATE INDEX numbers_free ON numbers (pool, value) WHERE state = 'free'",
};

constexpr const char* SLOTS[] = {
    "ALTER TABLE runs ADD COLUMN slot TEXT NOT NULL DEFAULT ''",
    // Each run's measurements lie together and are found by the primary key.
    "DROP INDEX measurements_judged",
    "DROP INDEX measurements_trend",
};

constexpr const char* LOST_OUTPUT[] = {
    "INSERT INTO verdicts (code, word) VALUES (9, 'output lost')",
};

constexpr const char* TURNS[] = {
    // A run that waited in a spool: the run of the same phone that it comes after. Others come in the order
    // of "id".
    "ALTER TABLE runs ADD COLUMN turn BIGINT",
    // The stations are few, and found without going through the runs.
    "CREATE INDEX runs_station ON runs (station)",
};

struct Migration {
  const char* const* statements;
  std::size_t count;
};

constexpr Migration MIGRATIONS[] = {{RUNS, std::size(RUNS)},
                                    {NUMBERS, std::size(NUMBERS)},
                                    {SLOTS, std::size(SLOTS)},
                                    {LOST_OUTPUT, std::size(LOST_OUTPUT)},
                                    {TURNS, std::size(TURNS)}};

std::string Worded(const Connection& connection, std::string statement) {
  const std::pair<std::string_view, const char*> words[] = {{"{key}", connection.CountedKey()},
                                                            {"{bytes}", connection.BytesType()},
                                                            {"{ordered}", connection.OrderedByKey()}};
  for (const auto& [word, meaning] : words) {
    for (std::size_t at = statement.find(word); at != std::string::npos; at = statement.find(word))
      statement.replace(at, word.size(), meaning);
  }
  return statement;
}

bool HasTables(Connection& connection) {
  const bool server = connection.Address().kind == ResultsAddress::Kind::Server;
  const char* query = server ? "SELECT to_regclass('schema_versions') IS NOT NULL AND true"
                             : "SELECT name FROM sqlite_master WHERE name = 'schema_versions'";
  const auto rows = connection.Ask(query, "t");
  return !rows.empty() && rows[0][0].text != "f";
}

}  // namespace

int NewestSchema() {
  return static_cast<int>(std::size(MIGRATIONS));
}

int SchemaVersion(Connection& connection) {
  if (!HasTables(connection)) return 0;
  return static_cast<int>(connection.Ask("SELECT max(version) FROM schema_versions", "i")[0][0].number);
}

namespace {

// Makes the tables of the newest version out of those of an older one, or of none.
void MakeNewest(Connection& connection) {
  Transaction transaction(connection);
  // Two stations may find the old tables at the same time.
  if (connection.Address().kind == ResultsAddress::Kind::Server)
    connection.Ask("SELECT CAST(pg_advisory_xact_lock(7036874417766) AS TEXT)", "t");
  const int now = SchemaVersion(connection);
  if (now == 0)
    connection.Run(
        "CREATE TABLE IF NOT EXISTS schema_versions (version INTEGER PRIMARY KEY, applied BIGINT)");
  for (int version = now; version < NewestSchema(); ++version) {
    const Migration& migration = MIGRATIONS[version];
    for (std::size_t i = 0; i < migration.count; ++i)
      connection.Run(Worded(connection, migration.statements[i]));
    connection.Run(fmt::format("INSERT INTO schema_versions (version, applied) VALUES ({}, {})", version + 1,
                               connection.Now()));
  }
  transaction.Commit();
}

}  // namespace

void Migrate(Connection& connection) {
  const int found = SchemaVersion(connection);
  if (found == NewestSchema()) return;
  if (found > NewestSchema()) {
    throw ResultsError(
        fmt::format("the database {} was made by a newer phonetest: its tables have version {}, "
                    "and this program knows {}",
                    connection.Address().text, found, NewestSchema()));
  }
  try {
    MakeNewest(connection);
  } catch (const ResultsError& error) {
    if (connection.Address().kind == ResultsAddress::Kind::File && !connection.IsReadOnly()) throw;
    // A station's rights, or a reader's, do not reach for this.
    throw ResultsError(fmt::format(
        "{}; its tables have version {}, and version {} is needed, which is made when their owner opens it",
        error.what(), found, NewestSchema()));
  }
}

Connection OpenResults(const ResultsAddress& address) {
  Connection connection = OpenResultsToRead(address);
  if (connection.IsReadOnly())
    throw ResultsError(fmt::format("the database {} can only be read by this user", address.text));
  return connection;
}

Connection OpenResultsToRead(const ResultsAddress& address) {
  Connection connection(address);
  Migrate(connection);
  return connection;
}

}  // namespace station
