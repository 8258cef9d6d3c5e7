#include "station/tool/results_commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <limits>

#include "posix/whole_output.h"
#include "station/commands/clean_text.h"
#include "station/report/report.h"
#include "station/results/history.h"
#include "station/results/running.h"
#include "station/results/schema.h"
#include "station/results/spool.h"
#include "station/tool/given_options.h"
#include "station/tool/saved_attachments.h"

namespace station {

namespace {

using Given = ToolCommand::Given;
using Kind = ToolCommand::Option::Kind;
using nlohmann::ordered_json;

ordered_json ValueJson(const StoredValue& value) {
  ordered_json object = {{"reading", value.reading}};
  object["value"] = value.value ? ordered_json(*value.value) : ordered_json(value.text);
  if (!value.unit.empty()) object["unit"] = value.unit;
  if (value.minimum) object["minimum"] = *value.minimum;
  if (value.maximum) object["maximum"] = *value.maximum;
  if (!value.stated.empty()) object["limit"] = ordered_json::parse(value.stated, nullptr, false);
  if (value.verdict != StoredVerdict::Skipped) object["verdict"] = StoredVerdictWord(value.verdict);
  return object;
}

ordered_json StepJson(const StoredStep& step) {
  ordered_json object = {
      {"number", step.number},     {"name", step.name},
      {"work", step.work},         {"verdict", StoredVerdictWord(step.verdict)},
      {"attempts", step.attempts}, {"milliseconds", static_cast<double>(step.microseconds) / 1000}};
  if (!step.message.empty()) object["message"] = step.message;
  if (step.answer) {
    object["question"] = step.question;
    object["answer"] = {
        {"reply", step.answer->reply}, {"by", step.answer->by}, {"at", MomentText(step.answer->at)}};
  }
  object["values"] = ordered_json::array();
  for (const StoredValue& value : step.values) object["values"].push_back(ValueJson(value));
  return object;
}

// Days are compared as texts.
std::string Day(Given& given, const std::string& name) {
  std::string day = OnlyText(given, name);
  const auto fits = [&](std::size_t i) {
    return i == 4 || i == 7 ? day[i] == '-' : day[i] >= '0' && day[i] <= '9';
  };
  bool right = day.empty() || day.size() == 10;
  for (std::size_t i = 0; right && i < day.size(); ++i) right = fits(i);
  if (right && !day.empty()) {
    const auto number = [&](std::size_t from, std::size_t count) {
      return std::stoi(day.substr(from, count));
    };
    right = std::chrono::year_month_day(std::chrono::year(number(0, 4)),
                                        std::chrono::month(static_cast<unsigned>(number(5, 2))),
                                        std::chrono::day(static_cast<unsigned>(number(8, 2))))
                .ok();
  }
  if (!right) throw UsageError(fmt::format("--{}: '{}' is not a day like 2026-11-25", name, day));
  return day;
}

std::string DetailsText(Connection& connection, const RunRow& run) {
  std::string text;
  for (const StoredStep& step : StepsOfRun(connection, run.key)) {
    text += fmt::format("{:>4}  {:<15}  {:>9}  {}\n", step.number, StoredVerdictWord(step.verdict),
                        DurationText(std::chrono::microseconds(step.microseconds)), step.name);
    if (!step.message.empty()) text += fmt::format("{:32}  {}\n", "", step.message);
    for (const StoredValue& value : step.values) {
      text += fmt::format("{:32}  {}: {}{}{}\n", "", value.reading, ValueText(value),
                          value.unit.empty() ? "" : " ", value.unit);
    }
  }
  for (const AttachmentRow& file : AttachmentsOfRun(connection, run.key))
    text += fmt::format("attached: {} ({} bytes, SHA-256 {})\n", file.name, file.size, file.sha256);
  return text;
}

// A run by its number in the list, where 1 is the oldest, or by the beginning of its UUID.
const RunRow& RunNamed(const std::vector<RunRow>& runs, const std::string& name) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error == std::errc{} && end == name.data() + name.size() && number >= 1 && number <= runs.size())
    return runs[number - 1];
  const auto named = [&](const RunRow& run) { return !name.empty() && run.uuid.starts_with(name); };
  const auto found = std::ranges::find_if(runs, named);
  if (found == runs.end()) throw UsageError(fmt::format("there is no run '{}' in the list", name));
  if (std::ranges::count_if(runs, named) > 1)
    throw UsageError(fmt::format("several runs in the list begin with '{}'", name));
  return *found;
}

void ShowDifferences(const std::vector<Difference>& differences, bool json) {
  ordered_json list = ordered_json::array();
  std::string text;
  for (const Difference& one : differences) {
    list.push_back(
        {{"step", one.step}, {"reading", one.reading}, {"before", one.before}, {"after", one.after}});
    text += fmt::format("{}{}{}: {} -> {}\n", one.step, one.step.empty() ? "" : ", ", one.reading,
                        one.before.empty() ? "(none)" : one.before, one.after.empty() ? "(none)" : one.after);
  }
  if (json) {
    posix::Print("{}\n", JsonText(list));
  } else {
    posix::Print("{}", text.empty() ? "no difference\n" : CleanText(text));
  }
}

std::string HistoryText(const std::vector<RunRow>& runs) {
  std::string text;
  std::size_t number = 0;
  for (const RunRow& run : runs) {
    text +=
        fmt::format("{:>4}  {}  {:<15}  {:>9}  {}  {}{}{}  {}\n", ++number, MomentText(run.started),
                    StoredVerdictWord(run.verdict), DurationText(std::chrono::microseconds(run.microseconds)),
                    run.plan, run.station, run.person.empty() ? "" : "/", run.person, run.uuid);
  }
  return text;
}

// A mistyped file must not look like one without runs. Nothing was ever stored in the user's own one before
// the first run.
void CheckThere(const ResultsAddress& address) {
  if (address.kind != ResultsAddress::Kind::File) return;
  std::error_code error;
  if (std::filesystem::exists(address.text, error) || std::filesystem::exists(address.SpoolFolder(), error))
    return;
  if (address.text == ParseResultsAddress("").text) return;
  throw UsageError(fmt::format("there is no database {}", address.text));
}

ExitStatus ShowHistory(const Settings& settings, Given& given) {
  const std::string compared = OnlyText(given, "compare");
  const std::string detailed = OnlyText(given, "details");
  const std::string folder = OnlyText(given, "save");
  if (!folder.empty() && detailed.empty())
    throw UsageError("--save needs --details RUN: whose files to write");
  RunFilter filter = FilterOf(given);
  filter.phone = OnlyText(given, "serial");
  if (filter.phone.empty()) throw UsageError("history needs the number of a phone, and this one is empty");
  Connection connection = OpenedResults(settings, given);
  constexpr std::size_t ALL = std::numeric_limits<std::int64_t>::max();
  std::vector<RunRow> runs = FindRuns(connection, filter, ALL);
  std::ranges::reverse(runs);
  if (!compared.empty()) {
    const std::size_t comma = compared.find(',');
    if (comma == std::string::npos) throw UsageError("--compare needs two runs, as in 1,2");
    ShowDifferences(CompareRuns(connection, RunNamed(runs, compared.substr(0, comma)),
                                RunNamed(runs, compared.substr(comma + 1))),
                    settings.json);
  } else if (!detailed.empty()) {
    const RunRow& run = RunNamed(runs, detailed);
    if (!folder.empty()) SaveAttachments(connection, run, folder);
    posix::Print("{}", settings.json ? JsonText(DetailsJson(connection, run)) + "\n"
                                     : CleanText(HistoryText({run}) + DetailsText(connection, run)));
  } else if (settings.json) {
    ordered_json list = ordered_json::array();
    for (const RunRow& run : runs) list.push_back(RunJson(run));
    posix::Print("{}\n", JsonText(list));
  } else {
    posix::Print("{}", runs.empty() ? "no run of this phone\n" : CleanText(HistoryText(runs)));
  }
  return ExitStatus::Passed;
}

}  // namespace

ToolCommand::Option ResultsOption() {
  return {Kind::Text, "results",
          "database of results: a file, or postgresql://HOST/DATABASE [as configured, or results.db of this "
          "user]",
          "ADDRESS"};
}

std::optional<ResultsAddress> GivenResults(const Settings& settings, Given& given) {
  if (!given["no-results"].empty()) return std::nullopt;
  const std::string chosen = OnlyText(given, "results");
  return ParseResultsAddress(chosen.empty() ? settings.configuration.Text("results") : chosen);
}

Connection OpenedResults(const Settings& settings, ToolCommand::Given& given, bool makes) {
  const ResultsAddress address = *GivenResults(settings, given);
  if (!makes) CheckThere(address);
  Connection connection = OpenResultsToRead(address);
  if (connection.IsReadOnly()) return connection;
  try {
    RunStore store(connection);
    HandIn(store, connection);
  } catch (const ResultsError& error) {
    fmt::print(stderr, "phonetest: not every spooled run could be handed in: {}\n", CleanText(error.what()));
  }
  try {
    MarkInterrupted(connection);
  } catch (const ResultsError&) {
    // A reader's rights are not enough for it.
  }
  // The yield of years may take its time, and the person who asked for it can end it.
  connection.WaitForEver();
  return connection;
}

std::string MomentText(std::int64_t milliseconds) {
  return milliseconds == 0 ? "" : TimeText(static_cast<std::time_t>(milliseconds / 1000));
}

ordered_json RunJson(const RunRow& run) {
  const auto object = [](const std::string& text) { return ordered_json::parse(text, nullptr, false); };
  return {{"run", run.uuid},
          {"plan", run.plan},
          {"plan-sha256", run.plan_sha256},
          {"verdict", StoredVerdictWord(run.verdict)},
          {"started", MomentText(run.started)},
          {"ended", MomentText(run.ended)},
          {"milliseconds", static_cast<double>(run.microseconds) / 1000},
          {"serial", run.serial},
          {"identity", run.identity},
          {"address", run.address},
          {"station", run.station},
          {"operator", run.person},
          {"port", run.port},
          {"slot", run.slot},
          {"tool-version", run.tool_version},
          {"variables", object(run.variables)},
          {"versions", object(run.versions)},
          {"executable-sha256", run.executable_sha256}};
}

ordered_json DetailsJson(Connection& connection, const RunRow& run) {
  ordered_json object = RunJson(run);
  object["steps"] = ordered_json::array();
  for (const StoredStep& step : StepsOfRun(connection, run.key)) object["steps"].push_back(StepJson(step));
  object["attachments"] = ordered_json::array();
  for (const AttachmentRow& file : AttachmentsOfRun(connection, run.key)) {
    object["attachments"].push_back({{"step", file.step},
                                     {"name", file.name},
                                     {"type", file.type},
                                     {"sha256", file.sha256},
                                     {"bytes", file.size}});
  }
  return object;
}

RunFilter FilterOf(ToolCommand::Given& given) {
  RunFilter filter{.from_day = Day(given, "from"),
                   .to_day = Day(given, "to"),
                   .plan = OnlyText(given, "plan-name"),
                   .station = OnlyText(given, "at-station")};
  if (!filter.from_day.empty() && !filter.to_day.empty() && filter.from_day > filter.to_day)
    throw UsageError(fmt::format("--from {} is after --to {}", filter.from_day, filter.to_day));
  return filter;
}

std::vector<ToolCommand::Option> WithFilter(std::vector<ToolCommand::Option> options) {
  options.insert(options.end(), {{Kind::Text, "from", "only runs of this day or later", "YYYY-MM-DD"},
                                 {Kind::Text, "to", "only runs of this day or earlier", "YYYY-MM-DD"},
                                 {Kind::Text, "plan-name", "only runs of the plan with this name", "NAME"},
                                 {Kind::Text, "at-station", "only runs at this station", "NAME"},
                                 ResultsOption()});
  return options;
}

std::vector<ToolCommand> HistoryCommands() {
  return {
      {"history", "list the stored runs of a phone, compare two of them, or show one whole",
       WithFilter({{Kind::Positional, "serial", "the phone's serial number, identity or Bluetooth address",
                    "SERIAL"},
                   {Kind::Text, "compare", "what two runs of the list have different", "RUN,RUN"},
                   {Kind::Text, "details", "one run of the list with its steps and readings", "RUN"},
                   {Kind::Text, "save",
                    "with --details: write the run's pictures and other files into this folder", "FOLDER"}}),
       ShowHistory}};
}

}  // namespace station
