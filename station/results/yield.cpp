#include "station/results/yield.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>

namespace station {

namespace {

const char* GroupOf(YieldBy by) {
  switch (by) {
    case YieldBy::Plan:
      return "p.name";
    case YieldBy::Day:
      return "r.day";
    case YieldBy::Hour:
      return "r.day || CASE WHEN r.hour < 10 THEN ' 0' ELSE ' ' END || CAST(r.hour AS TEXT)";
    case YieldBy::Station:
      return "r.station";
  }
  return "p.name";
}

// Sums of two samples: T. F. Chan, G. H. Golub, R. J. LeVeque, "Updating Formulae and a Pairwise Algorithm
// for Computing Sample Variances", 1979.
void Join(MeasurementStatistics& into, const MeasurementStatistics& other) {
  const auto a = static_cast<double>(into.count);
  const auto b = static_cast<double>(other.count);
  const double apart = other.mean - into.mean;
  into.mean += apart * b / (a + b);
  into.squares += other.squares + apart * apart * a * b / (a + b);
  into.count += other.count;
  into.lowest = std::min(into.lowest, other.lowest);
  into.highest = std::max(into.highest, other.highest);
  into.definitions.insert(into.definitions.end(), other.definitions.begin(), other.definitions.end());
}

std::optional<double> Percent(std::int64_t part, std::int64_t whole) {
  if (whole == 0) return std::nullopt;
  return 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

// The spread that the indices of capability divide by.
std::optional<double> UsableSpread(const MeasurementStatistics& one) {
  const auto spread = Spread(one);
  return spread && *spread > 0 ? spread : std::nullopt;
}

}  // namespace

std::optional<double> FirstPassYield(const YieldRow& row) {
  return Percent(row.first_passed, row.first_tested);
}

std::optional<double> FinalYield(const YieldRow& row) {
  return Percent(row.passed, row.phones);
}

std::vector<YieldRow> Yields(Connection& connection, const RunFilter& filter, YieldBy by) {
  const Condition condition = ConditionOf(filter);
  const std::string query = fmt::format(
      "WITH chosen AS (SELECT r.id, r.phone, coalesce(r.turn, r.id) AS turn, r.verdict, p.name AS plan, {} "
      "AS place, "
      "CASE WHEN r.verdict BETWEEN 1 AND 4 THEN 1 ELSE 0 END AS judged, "
      "CASE WHEN r.phone = '' THEN r.uuid ELSE r.phone END AS known_by "
      "FROM runs r JOIN plans p ON p.id = r.plan WHERE r.verdict <> 8{}), "
      "ranked AS (SELECT place, verdict, judged, "
      "row_number() OVER (PARTITION BY place, plan, known_by, judged ORDER BY turn DESC, id DESC) AS "
      "from_last, "
      "CASE WHEN EXISTS (SELECT 1 FROM runs e WHERE e.phone = c.phone AND e.phone <> '' AND "
      "e.plan IN (SELECT id FROM plans WHERE name = c.plan) AND e.verdict BETWEEN 1 AND 4 AND "
      "(coalesce(e.turn, e.id) < c.turn OR coalesce(e.turn, e.id) = c.turn AND e.id < c.id)) THEN 0 ELSE 1 "
      "END AS first FROM "
      "chosen c) "
      "SELECT place, sum(judged), sum(CASE WHEN judged = 1 AND from_last = 1 THEN 1 ELSE 0 END), "
      "sum(CASE WHEN judged = 1 AND from_last = 1 AND verdict = 1 THEN 1 ELSE 0 END), "
      "sum(CASE WHEN judged = 1 AND first = 1 THEN 1 ELSE 0 END), "
      "sum(CASE WHEN judged = 1 AND first = 1 AND verdict = 1 THEN 1 ELSE 0 END), sum(1 - judged) "
      "FROM ranked GROUP BY place ORDER BY place",
      GroupOf(by), condition.text);
  std::vector<YieldRow> rows;
  for (const SqlRow& row : connection.Ask(query, "tiiiiii", condition.values))
    rows.push_back({row[0].text, row[1].number, row[2].number, row[3].number, row[4].number, row[5].number,
                    row[6].number});
  return rows;
}

std::vector<FailingStep> FailingSteps(Connection& connection, const RunFilter& filter) {
  const Condition condition = ConditionOf(filter);
  const std::string query = fmt::format(
      "SELECT p.name, d.number, d.name, count(*), count(DISTINCT r.phone) FROM runs r "
      "JOIN steps s ON s.run = r.id JOIN plan_steps d ON d.id = s.definition JOIN plans p ON p.id = r.plan "
      "WHERE s.verdict > 1 AND s.verdict < 5 AND r.verdict BETWEEN 2 AND 4{} GROUP BY p.name, d.number, "
      "d.name "
      "ORDER BY count(*) DESC, p.name, d.number",
      condition.text);
  std::vector<FailingStep> steps;
  for (const SqlRow& row : connection.Ask(query, "titii", condition.values))
    steps.push_back(
        {row[0].text, static_cast<int>(row[1].number), row[2].text, row[3].number, row[4].number});
  return steps;
}

std::optional<double> Spread(const MeasurementStatistics& one) {
  if (one.count < 2) return std::nullopt;
  // The mean of equal values may be rounded.
  if (one.lowest == one.highest) return 0;
  return std::sqrt(one.squares / static_cast<double>(one.count - 1));
}

std::optional<double> Cp(const MeasurementStatistics& one) {
  const auto spread = UsableSpread(one);
  if (!spread || !one.minimum || !one.maximum) return std::nullopt;
  return (*one.maximum - *one.minimum) / (6 * *spread);
}

std::optional<double> Cpk(const MeasurementStatistics& one) {
  const auto spread = UsableSpread(one);
  if (!spread || (!one.minimum && !one.maximum)) return std::nullopt;
  double nearest = INFINITY;
  if (one.minimum) nearest = std::min(nearest, one.mean - *one.minimum);
  if (one.maximum) nearest = std::min(nearest, *one.maximum - one.mean);
  return nearest / (3 * *spread);
}

std::vector<MeasurementStatistics> Statistics(Connection& connection, const RunFilter& filter) {
  const Condition condition = ConditionOf(filter);
  const std::string query = fmt::format(
      "WITH v AS (SELECT m.definition, m.value FROM runs r JOIN measurements m ON m.run = r.id "
      "WHERE m.verdict <> 0 AND m.value IS NOT NULL AND r.verdict BETWEEN 1 AND 4{}), "
      "means AS (SELECT definition, count(*) AS count, avg(value) AS mean, min(value) AS lowest, "
      "max(value) AS highest FROM v GROUP BY definition), "
      "spreads AS (SELECT v.definition, sum((v.value - means.mean) * (v.value - means.mean)) AS squares "
      "FROM v JOIN means ON means.definition = v.definition GROUP BY v.definition) "
      "SELECT p.name, s.number, s.name, d.reading, d.unit, d.minimum, d.maximum, means.count, means.mean, "
      "spreads.squares, means.lowest, means.highest, d.id FROM means "
      "JOIN spreads ON spreads.definition = means.definition JOIN plan_measurements d ON d.id = "
      "means.definition "
      "JOIN plan_steps s ON s.id = d.step JOIN plans p ON p.id = s.plan WHERE d.limits <> '' "
      "ORDER BY p.name, s.number, d.id",
      condition.text);
  std::vector<MeasurementStatistics> all;
  // A plan that was changed elsewhere has other keys for the same measurement.
  std::map<std::tuple<std::string, std::string, std::string, std::string, std::optional<double>,
                      std::optional<double>>,
           std::size_t>
      known;
  for (const SqlRow& row : connection.Ask(query, "titttddiddddi", condition.values)) {
    MeasurementStatistics one{.plan = row[0].text,
                              .number = static_cast<int>(row[1].number),
                              .step = row[2].text,
                              .reading = row[3].text,
                              .unit = row[4].text,
                              .minimum = row[5].Real(),
                              .maximum = row[6].Real(),
                              .count = row[7].number,
                              .mean = row[8].real,
                              .squares = row[9].real,
                              .lowest = row[10].real,
                              .highest = row[11].real,
                              .definitions = {row[12].number}};
    const auto [place, fresh] =
        known.try_emplace({one.plan, one.step, one.reading, one.unit, one.minimum, one.maximum}, all.size());
    if (fresh) {
      all.push_back(std::move(one));
    } else {
      Join(all[place->second], one);
    }
  }
  return all;
}

std::vector<TrendPoint> Trend(Connection& connection, const RunFilter& filter,
                              const std::vector<std::int64_t>& definitions, std::size_t most) {
  if (definitions.empty()) return {};
  // Its plans and steps, then their newest runs, and in each the reading by its primary key: so the time does
  // not depend on how many runs there are.
  std::string plans;
  std::string steps;
  const std::string ids = fmt::format("{}", fmt::join(definitions, ", "));
  for (const SqlRow& row :
       connection.Ask("SELECT s.plan, s.number FROM plan_steps s JOIN plan_measurements d ON d.step = s.id "
                      "WHERE d.id IN (" +
                          ids + ")",
                      "ii")) {
    const char* comma = plans.empty() ? "" : ", ";
    plans += fmt::format("{}{}", comma, row[0].number);
    steps += fmt::format("{}{}", comma, row[1].number);
  }
  if (plans.empty()) return {};
  const Condition condition = ConditionOf(filter);
  const std::string query = fmt::format(
      "WITH newest AS (SELECT r.id, r.uuid, r.phone, r.started FROM runs r WHERE r.plan IN ({}) "
      "AND r.verdict BETWEEN 1 AND 4{} ORDER BY r.started DESC LIMIT {}) "
      "SELECT newest.uuid, newest.phone, newest.started, m.value, m.verdict FROM newest "
      "CROSS JOIN measurements m WHERE m.run = newest.id AND m.step IN ({}) AND m.definition IN ({}) "
      "AND m.verdict <> 0 AND m.value IS NOT NULL ORDER BY newest.started DESC",
      plans, condition.text, most, steps, ids);
  std::vector<TrendPoint> points;
  for (const SqlRow& row : connection.Ask(query, "ttidi", condition.values))
    points.push_back(
        {row[0].text, row[1].text, row[2].number, row[3].real, static_cast<StoredVerdict>(row[4].number)});
  return points;
}

}  // namespace station
