#include "station/results/numbers.h"

#include <fmt/format.h>

#include "station/commands/errors.h"

namespace station {

namespace {

// The first statement of each transaction about a pool: others wait here until it is over. Returns its kind.
std::string LockPool(Connection& connection, const std::string& pool) {
  if (connection.Run("UPDATE pools SET draws = draws + 1 WHERE name = ?", {pool}) == 0)
    throw UsageError(
        fmt::format("there is no pool of numbers \"{}\": phonetest numbers add makes one", pool));
  return connection.Ask("SELECT kind FROM pools WHERE name = ?", "t", {pool}).at(0).at(0).text;
}

// A given back number; one that another phone has got meanwhile without drawing it is left out.
std::vector<SqlRow> Returned(Connection& connection, const std::string& pool, const std::string& phone) {
  return connection.Ask(
      "SELECT n.value FROM numbers n WHERE n.pool = ? AND n.state = 'free' AND "
      "NOT EXISTS (SELECT 1 FROM runs WHERE identity = n.value AND identity <> '' AND phone <> ?) AND "
      "NOT EXISTS (SELECT 1 FROM runs WHERE address = n.value AND address <> '' AND phone <> ?) "
      "ORDER BY n.value LIMIT 1",
      "t", {pool, phone, phone});
}

// Whether a phone has it already that did not draw it.
bool IsTaken(Connection& connection, const std::string& value, const std::string& phone) {
  return !connection
              .Ask(
                  "SELECT id FROM runs WHERE identity = ? AND identity <> '' AND phone <> ? UNION "
                  "SELECT id FROM runs WHERE address = ? AND address <> '' AND phone <> ? LIMIT 1",
                  "i", {value, phone, value, phone})
              .empty();
}

// A number that nobody has, now in `state`; given back ones first. Nothing if none is left.
std::optional<std::string> Take(Connection& connection, const std::string& pool, const std::string& kind,
                                const std::string& state, const Receiver& receiver) {
  const auto returned = Returned(connection, pool, receiver.phone);
  if (!returned.empty()) {
    connection.Run("UPDATE numbers SET state = ?, phone = ?, run = ?, station = ?, changed = " +
                       std::string(connection.Now()) + " WHERE value = ?",
                   {state, receiver.phone, receiver.run, receiver.station, returned[0][0].text});
    return returned[0][0].text;
  }
  for (;;) {
    const auto range = connection.Ask(
        "SELECT id, next FROM number_ranges WHERE pool = ? AND next <= last ORDER BY id LIMIT 1", "ii",
        {pool});
    if (range.empty()) return std::nullopt;
    connection.Run("UPDATE number_ranges SET next = next + 1 WHERE id = ?", {range[0][0].number});
    const std::string value = NumberText(kind, range[0][1].number);
    if (IsTaken(connection, value, receiver.phone)) continue;
    connection.Run(
        "INSERT INTO numbers (value, pool, state, phone, run, station, changed) VALUES (?, ?, ?, ?, ?, ?, " +
            std::string(connection.Now()) + ")",
        {value, pool, state, receiver.phone, receiver.run, receiver.station});
    return value;
  }
}

}  // namespace

std::int64_t AddNumbers(Connection& connection, const std::string& pool, const NumberRange& range) {
  if (pool.empty()) throw UsageError("the pool needs a name");
  Transaction transaction(connection);
  // Against another one who adds: a pool that is new to both could not be waited for.
  if (connection.Address().kind == ResultsAddress::Kind::Server)
    connection.Run("LOCK TABLE number_ranges IN EXCLUSIVE MODE");
  connection.Run("INSERT INTO pools (name, kind, draws) VALUES (?, ?, 0) ON CONFLICT DO NOTHING",
                 {pool, range.kind});
  if (const std::string kind = LockPool(connection, pool); kind != range.kind)
    throw UsageError(fmt::format("the pool \"{}\" holds numbers of another kind: {}", pool, kind));
  const auto overlapping =
      connection.Ask("SELECT pool FROM number_ranges WHERE kind = ? AND first <= ? AND last >= ? LIMIT 1",
                     "t", {range.kind, range.last, range.first});
  if (!overlapping.empty())
    throw UsageError(
        fmt::format("some of these numbers are in the pool \"{}\" already", overlapping[0][0].text));
  connection.Run("INSERT INTO number_ranges (pool, kind, first, last, next) VALUES (?, ?, ?, ?, ?)",
                 {pool, range.kind, range.first, range.last, range.first});
  transaction.Commit();
  return range.last - range.first + 1;
}

std::vector<PoolRow> Pools(Connection& connection) {
  std::vector<PoolRow> pools;
  for (const SqlRow& row : connection.Ask(
           "SELECT p.name, p.kind, "
           "(SELECT CAST(coalesce(sum(last - next + 1), 0) AS BIGINT) FROM number_ranges r WHERE r.pool = "
           "p.name) + "
           "(SELECT count(*) FROM numbers n WHERE n.pool = p.name AND n.state = 'free'), "
           "(SELECT count(*) FROM numbers n WHERE n.pool = p.name AND n.state = 'reserved'), "
           "(SELECT count(*) FROM numbers n WHERE n.pool = p.name AND n.state IN ('drawn', 'written')) "
           "FROM pools p ORDER BY p.name",
           "ttiii"))
    pools.push_back({row[0].text, row[1].text, row[2].number, row[3].number, row[4].number});
  return pools;
}

std::vector<NumberRow> GivenNumbers(Connection& connection, const std::string& pool) {
  if (connection.Ask("SELECT name FROM pools WHERE name = ?", "t", {pool}).empty())
    throw UsageError(fmt::format("there is no pool of numbers \"{}\"", pool));
  std::vector<NumberRow> numbers;
  for (const SqlRow& row : connection.Ask(
           "SELECT value, state, phone, run, station, changed FROM numbers WHERE pool = ? ORDER BY value",
           "ttttti", {pool}))
    numbers.push_back({row[0].text, row[1].text, {row[2].text, row[3].text, row[4].text}, row[5].number});
  return numbers;
}

DrawnNumber DrawNumber(Connection& connection, const std::string& pool, const Receiver& receiver) {
  if (receiver.phone.empty())
    throw UsageError("a number is drawn for a serial number, and this one is empty");
  Transaction transaction(connection);
  const std::string kind = LockPool(connection, pool);
  const auto had = connection.Ask(
      "SELECT value FROM numbers WHERE pool = ? AND phone = ? AND state IN ('drawn', 'written') ORDER BY "
      "CASE state WHEN 'written' THEN 0 ELSE 1 END, changed, value LIMIT 1",
      "t", {pool, receiver.phone});
  if (!had.empty()) {
    // This run may write it, so an earlier one that still goes on must not give it back.
    MarkWritten(connection, had[0][0].text);
    transaction.Commit();
    return {had[0][0].text, false};
  }
  const auto value = Take(connection, pool, kind, "drawn", receiver);
  if (!value) throw UsageError(fmt::format("no number is left in the pool \"{}\"", pool));
  transaction.Commit();
  return {*value, true};
}

void MarkWritten(Connection& connection, const std::string& value) {
  connection.Run("UPDATE numbers SET state = 'written' WHERE value = ? AND state = 'drawn'", {value});
}

void GiveBack(Connection& connection, const std::string& value, const std::string& run) {
  Transaction transaction(connection);
  const auto given_back = connection.Run(
      "UPDATE numbers SET state = 'free', phone = '', run = '', station = '' WHERE value = ? AND run = ? AND "
      "state = 'drawn'",
      {value, run});
  // The run's record has what was meant for the phone, which did not get it.
  if (given_back > 0) {
    connection.Run("UPDATE runs SET identity = '' WHERE uuid = ? AND identity = ?", {run, value});
    connection.Run("UPDATE runs SET address = '' WHERE uuid = ? AND address = ?", {run, value});
  }
  transaction.Commit();
}

std::vector<std::string> ReserveNumbers(Connection& connection, const std::string& pool,
                                        const std::string& block, const std::string& station,
                                        std::size_t count) {
  Transaction transaction(connection);
  const std::string kind = LockPool(connection, pool);
  std::vector<std::string> numbers;
  for (const SqlRow& row : connection.Ask(
           "SELECT value FROM numbers WHERE pool = ? AND state = 'reserved' AND run = ? ORDER BY value", "t",
           {pool, block}))
    numbers.push_back(row[0].text);
  while (numbers.size() < count) {
    const auto value = Take(connection, pool, kind, "reserved", {"", block, station});
    if (!value) break;
    numbers.push_back(*value);
  }
  transaction.Commit();
  return numbers;
}

std::int64_t GiveBackReserved(Connection& connection, const std::string& pool, const std::string& block) {
  Transaction transaction(connection);
  LockPool(connection, pool);
  const auto count =
      connection.Run("UPDATE numbers SET state = 'free', run = '', station = '', changed = " +
                         std::string(connection.Now()) + " WHERE pool = ? AND state = 'reserved' AND run = ?",
                     {pool, block});
  transaction.Commit();
  return count;
}

void SettleReserved(Connection& connection, const std::string& value, const Receiver& receiver) {
  connection.Run("UPDATE numbers SET state = 'written', phone = ?, run = ?, station = ?, changed = " +
                     std::string(connection.Now()) + " WHERE value = ? AND state = 'reserved'",
                 {receiver.phone, receiver.run, receiver.station, value});
}

}  // namespace station
