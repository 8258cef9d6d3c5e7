// From what a plan's run returns to what is kept of it.
#include <fmt/format.h>

#include <algorithm>

#include "protocol/selectors.h"
#include "station/commands/errors.h"
#include "station/plan/variables.h"
#include "station/report/phone_facts.h"
#include "station/report/report.h"
#include "station/results/number_form.h"
#include "station/results/record.h"

namespace station {

namespace {

// A longer text is stored beside the run's pictures, where it does not burden the tables.
constexpr std::size_t LONGEST_TEXT = 2000;

std::string Dump(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void Judge(StoredValue& value, const JudgedLimit& judged) {
  value.verdict = ToStored(judged.verdict);
  const Limit limit = ParseLimit(judged.reading, judged.stated);
  value.minimum = limit.minimum;
  value.maximum = limit.maximum;
  const bool other = std::ranges::any_of(judged.stated.items(), [](const auto& item) {
    return item.key() != "minimum" && item.key() != "maximum";
  });
  if (other) value.stated = Dump(judged.stated);
}

StoredValue ValueOf(const std::string& reading, const nlohmann::ordered_json& value,
                    const std::string& unit) {
  StoredValue stored{.reading = reading, .unit = unit};
  if (value.is_number()) {
    stored.value = value.get<double>();
  } else {
    stored.text = value.is_string() ? value.get<std::string>() : value.is_null() ? "" : Dump(value);
  }
  return stored;
}

std::string WorkOf(const StepResult& step) {
  if (!step.operation.empty()) return step.operation;
  if (!step.question.empty()) return "question";
  return step.program ? "program" : "wait";
}

// Two files of one run or step may have the same name.
std::string FreeName(const std::vector<StoredFile>& files, const std::string& name) {
  std::string free = name;
  for (int number = 2; std::ranges::find(files, free, &StoredFile::name) != files.end(); ++number)
    free = fmt::format("{} ({})", name, number);
  return free;
}

std::string TypeOf(const std::string& content) {
  if (content.starts_with("\x89PNG")) return "image/png";
  if (content.starts_with("\xFF\xD8\xFF")) return "image/jpeg";
  return content.find('\0') == std::string::npos ? "text/plain" : "application/octet-stream";
}

std::string VariableNamed(const std::string& name, const Variables& variables) {
  const auto found = std::ranges::find(variables, name, &Variables::value_type::first);
  return found == variables.end() ? "" : found->second;
}

constexpr std::pair<Verdict, StoredVerdict> STORED[] = {
    {Verdict::Skipped, StoredVerdict::Skipped},       {Verdict::Passed, StoredVerdict::Passed},
    {Verdict::Incomplete, StoredVerdict::Incomplete}, {Verdict::Failed, StoredVerdict::Failed},
    {Verdict::NoLink, StoredVerdict::NoLink},         {Verdict::PlanWrong, StoredVerdict::PlanWrong},
    {Verdict::Aborted, StoredVerdict::Aborted},       {Verdict::OutputLost, StoredVerdict::OutputLost},
};

}  // namespace

StoredVerdict ToStored(Verdict verdict) {
  const auto found = std::ranges::find(STORED, verdict, [](const auto& pair) { return pair.first; });
  return found == std::end(STORED) ? StoredVerdict::PlanWrong : found->second;
}

Verdict FromStored(StoredVerdict verdict) {
  const auto found = std::ranges::find(STORED, verdict, [](const auto& pair) { return pair.second; });
  return found == std::end(STORED) ? Verdict::Aborted : found->first;
}

std::string StoredVerdictWord(StoredVerdict verdict) {
  if (verdict == StoredVerdict::Interrupted) return "interrupted";
  if (verdict == StoredVerdict::Running) return "running";
  return VerdictWord(FromStored(verdict));
}

RunStart StartOf(const Plan& plan, const std::string& port, const Origin& origin, const std::string& uuid) {
  return {.uuid = uuid,
          .plan = plan.name,
          .plan_file = plan.file,
          .plan_sha256 = plan.sha256,
          .serial = VariableNamed("serial", plan.variables),
          .identity = VariableNamed("identity", plan.variables),
          .address = StoredSpelling(VariableNamed("address", plan.variables)),
          .station = origin.station,
          .person = origin.person,
          .tool_version = origin.tool_version,
          .port = port,
          .started = MillisecondsNow(),
          .variables = plan.variables};
}

StoredStep StepOf(std::size_t index, const StepResult& step) {
  StoredStep stored{.number = static_cast<int>(index) + 1,
                    .name = step.name,
                    .work = WorkOf(step),
                    .question = step.question,
                    .verdict = ToStored(step.verdict),
                    .attempts = step.attempts,
                    .microseconds = step.took.count(),
                    .message = step.message};
  for (const Reading& reading : step.readings)
    stored.values.push_back(ValueOf(reading.name, reading.value, reading.unit));
  for (const JudgedLimit& judged : step.limits) {
    if (judged.verdict == Verdict::Skipped) continue;
    auto value = std::ranges::find(stored.values, judged.reading, &StoredValue::reading);
    if (value == stored.values.end()) {
      stored.values.push_back(ValueOf(judged.reading, judged.value, judged.unit));
      value = stored.values.end() - 1;
    }
    Judge(*value, judged);
  }
  for (StoredValue& value : stored.values) {
    if (value.text.size() <= LONGEST_TEXT) continue;
    stored.files.push_back({FreeName(stored.files, value.reading + ".txt"), "text/plain", value.text});
    value.text = "in " + stored.files.back().name;
  }
  if (step.answer && !step.answer->by.empty())
    stored.answer = {ReplyWord(*step.answer), step.answer->by,
                     static_cast<std::int64_t>(step.answer->at) * 1000};
  for (const Attachment& attachment : step.attachments) {
    stored.files.push_back({FreeName(stored.files, attachment.name), attachment.type,
                            std::string(attachment.content.begin(), attachment.content.end())});
  }
  return stored;
}

RunEnd EndOf(const PlanResult& result) {
  const PhoneFacts facts = FactsOfPhone(result);
  RunEnd end{.verdict = ToStored(result.verdict),
             .ended = MillisecondsNow(),
             .microseconds = result.took.count(),
             .microseconds_waited = result.waited.count(),
             // A phone without a number is known by something else, or not at all.
             .identity = facts.identity == BLANK_IDENTITY ? "" : facts.identity,
             .versions = facts.versions};
  for (const StepResult& step : result.steps) {
    for (const Reading& reading : step.readings) {
      if (step.operation == "bluetooth address" && reading.name == "address")
        end.address = StoredSpelling(reading.text);
    }
  }
  if (result.executable) {
    end.executable = result.executable->path;
    end.executable_sha256 = result.executable->sha256;
  }
  return end;
}

void AttachFile(RunEnd& end, const std::string& path) {
  constexpr std::size_t LARGEST = 64u << 20;
  const std::string name = FreeName(end.files, path.substr(path.rfind('/') + 1));
  try {
    const std::string content = ReadFile(path, LARGEST);
    end.files.push_back({name, TypeOf(content), content});
  } catch (const UsageError& error) {
    end.files.push_back({name, "text/plain", error.what()});
  }
}

}  // namespace station
