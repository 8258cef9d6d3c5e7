#include "station/results/record.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <random>

#include "posix/sha256.h"

namespace station {

namespace {

std::string LimitsText(const StoredValue& value) {
  if (!value.minimum && !value.maximum) return "";
  return fmt::format("{}..{}", value.minimum ? fmt::format("{}", *value.minimum) : "",
                     value.maximum ? fmt::format("{}", *value.maximum) : "");
}

std::string JsonObject(const std::vector<std::pair<std::string, std::string>>& pairs) {
  auto object = nlohmann::ordered_json::object();
  for (const auto& [name, value] : pairs) object[name] = value;
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

const std::string& FirstOf(const std::string& first, const std::string& second, const std::string& third) {
  return !first.empty() ? first : !second.empty() ? second : third;
}

// Rows of one table, which go in portions of one size: so a statement is prepared for few sizes.
class Rows {
 public:
  Rows(const char* into, const char* conflict) : into_(into), conflict_(conflict) {}

  void Add(Connection& connection, std::vector<SqlValue> row) {
    columns_ = row.size();
    std::ranges::move(row, std::back_inserter(values_));
    if (values_.size() == PORTION * columns_) SendSome(connection, PORTION);
  }

  void Send(Connection& connection) {
    for (std::size_t size = PORTION / 2; size > 0; size /= 2) {
      while (columns_ != 0 && values_.size() >= size * columns_) SendSome(connection, size);
    }
  }

 private:
  static constexpr std::size_t PORTION = 64;

  void SendSome(Connection& connection, std::size_t count) {
    std::string row = "(?";
    for (std::size_t i = 1; i < columns_; ++i) row += ", ?";
    row += ")";
    std::string all = row;
    for (std::size_t i = 1; i < count; ++i) all += ", " + row;
    const auto end = values_.begin() + static_cast<std::ptrdiff_t>(count * columns_);
    connection.Run(into_ + all + conflict_, {values_.begin(), end});
    values_.erase(values_.begin(), end);
  }

  std::string into_;
  std::string conflict_;
  std::size_t columns_ = 0;
  std::vector<SqlValue> values_;
};

std::int64_t Code(StoredVerdict verdict) {
  return static_cast<std::int64_t>(verdict);
}

}  // namespace

std::string NewRunId() {
  static thread_local std::random_device random;
  const auto now = static_cast<std::uint64_t>(MillisecondsNow()) & 0xFFFF'FFFF'FFFF;
  const std::uint32_t first = random();
  const std::uint32_t second = random();
  const std::uint32_t third = random();
  return fmt::format("{:08x}-{:04x}-7{:03x}-{:04x}-{:04x}{:08x}", now >> 16, now & 0xFFFF, first & 0xFFF,
                     0x8000 | (first >> 12 & 0x3FFF), second & 0xFFFF, third);
}

std::int64_t MillisecondsNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

RunStore::Keys RunStore::Start(const RunStart& start) {
  Keys keys;
  keys.plan = PlanKey(start);
  const auto local = fmt::localtime(static_cast<std::time_t>(start.started / 1000));
  connection_.Run(
      "INSERT INTO runs (uuid, plan, phone, serial, identity, address, station, operator, port, slot, "
      "tool, process, variables, versions, executable, executable_sha256, started, day, hour, heard, "
      "verdict) "
      "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, '{}', '', '', ?, ?, ?, " +
          std::string(connection_.Now()) + ", 8) ON CONFLICT (uuid) DO NOTHING",
      {start.uuid, keys.plan, FirstOf(start.serial, start.identity, start.address), start.serial,
       start.identity, start.address, start.station, start.person, start.port, start.slot, start.tool_version,
       start.process, JsonObject(start.variables), start.started, fmt::format("{:%Y-%m-%d}", local),
       local.tm_hour});
  keys.run = connection_.Ask("SELECT id FROM runs WHERE uuid = ?", "i", {start.uuid}).at(0).at(0).number;
  return keys;
}

void RunStore::Forget() {
  known_plan_ = 0;
  steps_.clear();
  values_.clear();
}

std::int64_t RunStore::PlanKey(const RunStart& start) {
  const auto find = [&] {
    return connection_.Ask("SELECT id FROM plans WHERE name = ? AND sha256 = ?", "i",
                           {start.plan, start.plan_sha256});
  };
  auto found = find();
  if (found.empty()) {
    connection_.Run("INSERT INTO plans (name, sha256, file) VALUES (?, ?, ?) ON CONFLICT DO NOTHING",
                    {start.plan, start.plan_sha256, start.plan_file});
    found = find();
  }
  const std::int64_t key = found.at(0).at(0).number;
  if (key == known_plan_) return key;
  Forget();
  known_plan_ = key;
  // A plan whose limits hold variables may have any number of definitions; the newest are enough.
  for (const SqlRow& row :
       connection_.Ask("SELECT id, number, name, work, question FROM plan_steps WHERE plan = ? "
                       "ORDER BY id DESC LIMIT 1000",
                       "iittt", {key}))
    steps_[{static_cast<int>(row[1].number), row[2].text, row[3].text, row[4].text}] = row[0].number;
  for (const SqlRow& row :
       connection_.Ask("SELECT m.id, m.step, m.reading, m.unit, m.limits FROM plan_measurements m "
                       "JOIN plan_steps s ON s.id = m.step WHERE s.plan = ? ORDER BY m.id DESC LIMIT 1000",
                       "iittt", {key}))
    values_[{row[1].number, row[2].text, row[3].text, row[4].text}] = row[0].number;
  return key;
}

std::int64_t RunStore::StepKey(std::int64_t plan, const StoredStep& step) {
  auto& key = steps_[{step.number, step.name, step.work, step.question}];
  if (key != 0) return key;
  const std::vector<SqlValue> values = {plan, step.number, step.name, step.work, step.question};
  connection_.Run(
      "INSERT INTO plan_steps (plan, number, name, work, question) VALUES (?, ?, ?, ?, ?) ON CONFLICT DO "
      "NOTHING",
      values);
  key = connection_
            .Ask(
                "SELECT id FROM plan_steps WHERE plan = ? AND number = ? AND name = ? AND work = ? AND "
                "question = ?",
                "i", values)
            .at(0)
            .at(0)
            .number;
  return key;
}

std::int64_t RunStore::ValueKey(std::int64_t step, const StoredValue& value) {
  const std::string limits = LimitsText(value);
  auto& key = values_[{step, value.reading, value.unit, limits}];
  if (key != 0) return key;
  connection_.Run(
      "INSERT INTO plan_measurements (step, reading, unit, limits, minimum, maximum) VALUES (?, ?, ?, ?, ?, "
      "?) "
      "ON CONFLICT DO NOTHING",
      {step, value.reading, value.unit, limits, value.minimum, value.maximum});
  key =
      connection_
          .Ask("SELECT id FROM plan_measurements WHERE step = ? AND reading = ? AND unit = ? AND limits = ?",
               "i", {step, value.reading, value.unit, limits})
          .at(0)
          .at(0)
          .number;
  return key;
}

void RunStore::Steps(const Keys& keys, std::span<const StoredStep> steps) {
  Rows rows(
      "INSERT INTO steps (run, number, definition, verdict, attempts, microseconds, message) VALUES ",
      " ON CONFLICT (run, number) DO UPDATE SET verdict = excluded.verdict, attempts = excluded.attempts, "
      "microseconds = excluded.microseconds, message = excluded.message");
  Rows values(
      "INSERT INTO measurements (run, step, number, definition, value, text, stated, verdict) VALUES ",
      " ON CONFLICT (run, step, number) DO NOTHING");
  Rows answers("INSERT INTO answers (run, step, reply, answered_by, answered) VALUES ",
               " ON CONFLICT (run, step) DO NOTHING");
  for (const StoredStep& step : steps) {
    const std::int64_t definition = StepKey(keys.plan, step);
    const auto message = step.message.empty() ? std::nullopt : std::optional(step.message);
    rows.Add(connection_, {keys.run, step.number, definition, Code(step.verdict), step.attempts,
                           step.microseconds, message});
    for (std::size_t i = 0; i < step.values.size(); ++i) {
      const StoredValue& value = step.values[i];
      const auto text = value.value ? std::nullopt : std::optional(value.text);
      const auto stated = value.stated.empty() ? std::nullopt : std::optional(value.stated);
      values.Add(connection_, {keys.run, step.number, static_cast<std::int64_t>(i + 1),
                               ValueKey(definition, value), value.value, text, stated, Code(value.verdict)});
    }
    if (step.answer) {
      answers.Add(connection_, {keys.run, step.number, step.answer->reply, step.answer->by, step.answer->at});
    }
  }
  for (Rows* one : {&rows, &values, &answers}) one->Send(connection_);
  for (const StoredStep& step : steps) Files(keys, step.number, step.files);
}

void RunStore::Files(const Keys& keys, int step, const std::vector<StoredFile>& files) {
  for (const StoredFile& file : files) {
    const std::string sha256 = posix::Sha256(file.content);
    connection_.StoreContent(sha256, file.content);
    connection_.Run(
        "INSERT INTO attachments (run, step, name, type, sha256) VALUES (?, ?, ?, ?, ?) "
        "ON CONFLICT (run, step, name) DO NOTHING",
        {keys.run, step, file.name, file.type, sha256});
  }
}

void RunStore::End(const Keys& keys, const RunEnd& end) {
  // What was read from the phone is stronger than what the station meant to write to it. The phone's name
  // stays.
  connection_.Run(
      "UPDATE runs SET verdict = ?, ended = ?, microseconds = ?, microseconds_waited = ?, versions = ?, "
      "executable = ?, executable_sha256 = ? WHERE id = ?",
      {Code(end.verdict), end.ended, end.microseconds, end.microseconds_waited, JsonObject(end.versions),
       end.executable, end.executable_sha256, keys.run});
  if (!end.identity.empty())
    connection_.Run("UPDATE runs SET identity = ? WHERE id = ?", {end.identity, keys.run});
  if (!end.address.empty())
    connection_.Run("UPDATE runs SET address = ? WHERE id = ?", {end.address, keys.run});
  const std::string known = FirstOf(end.identity, end.address, "");
  if (!known.empty()) {
    connection_.Run("UPDATE runs SET phone = ? WHERE id = ? AND phone = ''", {known, keys.run});
  }
  Files(keys, 0, end.files);
}

}  // namespace station
