#include "station/results/history.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "station/results/number_form.h"

namespace station {

namespace {

constexpr const char* COLUMNS =
    "r.id, r.uuid, p.name, p.sha256, r.phone, r.serial, r.identity, r.address, r.station, r.operator, "
    "r.port, r.slot, "
    "r.tool, r.variables, r.versions, r.executable_sha256, r.started, r.ended, r.microseconds, r.verdict";
constexpr const char* LETTERS = "itttttttttttttttiiii";

RunRow RowOf(const SqlRow& row) {
  return {.key = row[0].number,
          .uuid = row[1].text,
          .plan = row[2].text,
          .plan_sha256 = row[3].text,
          .phone = row[4].text,
          .serial = row[5].text,
          .identity = row[6].text,
          .address = row[7].text,
          .station = row[8].text,
          .person = row[9].text,
          .port = row[10].text,
          .slot = row[11].text,
          .tool_version = row[12].text,
          .variables = row[13].text,
          .versions = row[14].text,
          .executable_sha256 = row[15].text,
          .started = row[16].number,
          .ended = row[17].number,
          .microseconds = row[18].number,
          .verdict = static_cast<StoredVerdict>(row[19].number)};
}

std::vector<RunRow> Runs(Connection& connection, const std::string& rest,
                         const std::vector<SqlValue>& values) {
  const std::string query =
      fmt::format("SELECT {} FROM runs r JOIN plans p ON p.id = r.plan WHERE true{}", COLUMNS, rest);
  std::vector<RunRow> runs;
  for (const SqlRow& row : connection.Ask(query, LETTERS, values)) runs.push_back(RowOf(row));
  return runs;
}

using Named = std::vector<std::pair<std::string, std::string>>;  // in order

void CompareNamed(const std::string& step, const Named& before, const Named& after,
                  std::vector<Difference>& to) {
  const auto find = [](const Named& in, const std::string& name) {
    const auto found = std::ranges::find(in, name, &Named::value_type::first);
    return found == in.end() ? "" : found->second;
  };
  for (const auto& [name, value] : after) {
    if (find(before, name) != value) to.push_back({step, name, find(before, name), value});
  }
  for (const auto& [name, value] : before) {
    if (std::ranges::find(after, name, &Named::value_type::first) == after.end())
      to.push_back({step, name, value, ""});
  }
}

Named NamedOf(const std::string& prefix, const std::string& object) {
  Named named;
  const auto parsed = nlohmann::ordered_json::parse(object, nullptr, false);
  if (!parsed.is_object()) return named;
  for (const auto& [name, value] : parsed.items())
    named.emplace_back(prefix + name, value.get<std::string>());
  return named;
}

Named NamedOf(const StoredStep& step) {
  Named named = {{"verdict", StoredVerdictWord(step.verdict)}};
  for (const StoredValue& value : step.values) named.emplace_back(value.reading, ValueText(value));
  return named;
}

// Of steps with the same name, the first belongs to the first.
std::map<std::pair<std::string, int>, const StoredStep*> ByName(const std::vector<StoredStep>& steps) {
  std::map<std::string, int> seen;
  std::map<std::pair<std::string, int>, const StoredStep*> named;
  for (const StoredStep& step : steps) named[{step.name, seen[step.name]++}] = &step;
  return named;
}

}  // namespace

Condition ConditionOf(const RunFilter& filter) {
  Condition condition;
  const auto add = [&condition](const char* text, const std::string& value) {
    if (value.empty()) return;
    condition.text += text;
    const auto places = std::ranges::count(std::string_view(text), '?');
    for (auto i = places; i > 0; --i) condition.values.emplace_back(value);
  };
  add(" AND r.day >= ?", filter.from_day);
  add(" AND r.day <= ?", filter.to_day);
  add(" AND r.plan IN (SELECT id FROM plans WHERE name = ?)", filter.plan);
  add(" AND r.station = ?", filter.station);
  // Each part has an index without the runs that have no such number.
  add(" AND r.id IN (SELECT id FROM runs WHERE phone = ? UNION "
      "SELECT id FROM runs WHERE serial = ? AND serial <> '' UNION "
      "SELECT id FROM runs WHERE identity = ? AND identity <> '' UNION "
      "SELECT id FROM runs WHERE address = ? AND address <> '')",
      filter.phone);
  if (!filter.phone.empty()) condition.values.back() = StoredSpelling(filter.phone);
  return condition;
}

std::vector<RunRow> FindRuns(Connection& connection, const RunFilter& filter, std::size_t most) {
  const Condition condition = ConditionOf(filter);
  const std::string order = fmt::format(" ORDER BY r.started DESC, r.id DESC LIMIT {}", most);
  return Runs(connection, condition.text + order, condition.values);
}

std::vector<RunRow> FindRunsAfter(Connection& connection, const RunFilter& filter, std::int64_t after,
                                  std::size_t most) {
  const Condition condition = ConditionOf(filter);
  const std::string rest = fmt::format(" AND r.id > {} ORDER BY r.id LIMIT {}", after, most);
  return Runs(connection, condition.text + rest, condition.values);
}

std::optional<RunRow> FindRun(Connection& connection, const std::string& uuid) {
  const auto runs = Runs(connection, " AND r.uuid = ?", {uuid});
  return runs.empty() ? std::nullopt : std::optional(runs.front());
}

std::optional<RunRow> LastJudgedRun(Connection& connection, const std::string& phone,
                                    const std::string& plan) {
  const Condition condition = ConditionOf({.plan = plan, .phone = phone});
  const auto runs =
      Runs(connection,
           condition.text +
               " AND r.verdict BETWEEN 1 AND 4 ORDER BY coalesce(r.turn, r.id) DESC, r.id DESC LIMIT 1",
           condition.values);
  return runs.empty() ? std::nullopt : std::optional(runs.front());
}

void PlaceLateRun(Connection& connection, std::int64_t run) {
  connection.Run(
      "UPDATE runs SET turn = coalesce((SELECT max(coalesce(e.turn, e.id)) FROM runs e WHERE e.phone = "
      "runs.phone "
      "AND e.id < runs.id AND e.started <= runs.started), 0) WHERE id = ? AND phone <> ''",
      {run});
}

std::vector<std::string> PlanNames(Connection& connection) {
  std::vector<std::string> names;
  for (const SqlRow& row : connection.Ask("SELECT DISTINCT name FROM plans ORDER BY name", "t"))
    names.push_back(row[0].text);
  return names;
}

std::vector<std::string> StationNames(Connection& connection) {
  std::vector<std::string> names;
  // Each is the next one in the index, so the time does not depend on how many runs there are.
  for (const SqlRow& row :
       connection.Ask("WITH RECURSIVE found(name) AS (SELECT min(station) FROM runs UNION ALL "
                      "SELECT (SELECT min(station) FROM runs WHERE station > found.name) FROM found WHERE "
                      "found.name IS NOT "
                      "NULL) SELECT name FROM found WHERE name IS NOT NULL",
                      "t"))
    names.push_back(row[0].text);
  return names;
}

std::string NewestChange(Connection& connection) {
  std::string change;
  for (const SqlRow& row : connection.Ask("SELECT coalesce(max(id), 0) FROM runs", "i"))
    change = fmt::format("{}:", row[0].number);
  std::vector<std::int64_t> running;  // sorted here: the database would take the order of all runs for it
  for (const SqlRow& row : connection.Ask("SELECT id FROM runs WHERE verdict = 8", "i"))
    running.push_back(row[0].number);
  std::ranges::sort(running);
  return change + fmt::format("{}", fmt::join(running, " "));
}

std::vector<StoredStep> StepsOfRun(Connection& connection, std::int64_t run) {
  std::vector<StoredStep> steps;
  for (const SqlRow& row : connection.Ask(
           "SELECT s.number, d.name, d.work, d.question, s.verdict, s.attempts, s.microseconds, s.message, "
           "a.reply, "
           "a.answered_by, a.answered FROM steps s JOIN plan_steps d ON d.id = s.definition "
           "LEFT JOIN answers a ON a.run = s.run AND a.step = s.number WHERE s.run = ? ORDER BY s.number",
           "itttiiittti", {run})) {
    StoredStep step{.number = static_cast<int>(row[0].number),
                    .name = row[1].text,
                    .work = row[2].text,
                    .question = row[3].text,
                    .verdict = static_cast<StoredVerdict>(row[4].number),
                    .attempts = static_cast<int>(row[5].number),
                    .microseconds = row[6].number,
                    .message = row[7].text};
    if (!row[8].null) step.answer = {row[8].text, row[9].text, row[10].number};
    steps.push_back(std::move(step));
  }
  for (const SqlRow& row : connection.Ask(
           "SELECT m.step, d.reading, d.unit, m.value, m.text, d.minimum, d.maximum, m.stated, m.verdict "
           "FROM measurements m JOIN plan_measurements d ON d.id = m.definition WHERE m.run = ? "
           "ORDER BY m.step, m.number",
           "ittdtddti", {run})) {
    const auto step = std::ranges::find(steps, static_cast<int>(row[0].number), &StoredStep::number);
    if (step == steps.end()) continue;
    step->values.push_back({.reading = row[1].text,
                            .unit = row[2].text,
                            .value = row[3].Real(),
                            .text = row[4].text,
                            .minimum = row[5].Real(),
                            .maximum = row[6].Real(),
                            .stated = row[7].text,
                            .verdict = static_cast<StoredVerdict>(row[8].number)});
  }
  return steps;
}

std::vector<AttachmentRow> AttachmentsOfRun(Connection& connection, std::int64_t run) {
  std::vector<AttachmentRow> attachments;
  for (const SqlRow& row :
       connection.Ask("SELECT a.step, a.name, a.type, a.sha256, c.size FROM attachments a "
                      "JOIN contents c ON c.sha256 = a.sha256 WHERE a.run = ? ORDER BY a.step, a.name",
                      "ittti", {run}))
    attachments.push_back(
        {static_cast<int>(row[0].number), row[1].text, row[2].text, row[3].text, row[4].number});
  return attachments;
}

std::map<int, std::int64_t> UsualMicroseconds(Connection& connection, const std::string& plan) {
  std::map<int, std::int64_t> usual;
  for (const SqlRow& row : connection.Ask("SELECT number, CAST(avg(microseconds) AS BIGINT) FROM steps WHERE "
                                          "run IN (SELECT r.id FROM runs r "
                                          "JOIN plans p ON p.id = r.plan WHERE p.name = ? AND r.verdict = 1 "
                                          "ORDER BY r.started DESC LIMIT 20) "
                                          "GROUP BY number",
                                          "ii", {plan}))
    usual[static_cast<int>(row[0].number)] = row[1].number;
  return usual;
}

std::string ValueText(const StoredValue& value) {
  return value.value ? fmt::format("{}", *value.value) : value.text;
}

std::vector<Difference> CompareRuns(Connection& connection, const RunRow& before, const RunRow& after) {
  std::vector<Difference> differences;
  const auto head = [](const RunRow& run) {
    Named named = {{"plan", run.plan},
                   {"plan's SHA-256", run.plan_sha256},
                   {"verdict", StoredVerdictWord(run.verdict)},
                   {"identity", run.identity},
                   {"address", run.address},
                   {"executable's SHA-256", run.executable_sha256}};
    for (const auto& more : {NamedOf("version ", run.versions), NamedOf("variable ", run.variables)})
      named.insert(named.end(), more.begin(), more.end());
    return named;
  };
  CompareNamed("", head(before), head(after), differences);
  const auto old_steps = StepsOfRun(connection, before.key);
  const auto new_steps = StepsOfRun(connection, after.key);
  const auto old_by_name = ByName(old_steps);
  const auto new_by_name = ByName(new_steps);
  std::map<std::string, int> seen;
  for (const StoredStep& step : new_steps) {
    const auto found = old_by_name.find({step.name, seen[step.name]++});
    CompareNamed(step.name, found == old_by_name.end() ? Named() : NamedOf(*found->second), NamedOf(step),
                 differences);
  }
  seen.clear();
  for (const StoredStep& step : old_steps) {
    if (!new_by_name.contains({step.name, seen[step.name]++}))
      CompareNamed(step.name, NamedOf(step), {}, differences);
  }
  return differences;
}

}  // namespace station
