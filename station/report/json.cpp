#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "station/commands/clean_text.h"
#include "station/report/phone_facts.h"
#include "station/report/report.h"

namespace station {

namespace {

using nlohmann::ordered_json;

ordered_json ExchangesJson(const std::deque<Exchange>& exchanges) {
  ordered_json list = ordered_json::array();
  for (const Exchange& exchange : exchanges) {
    list.push_back({{"command", exchange.name},
                    {"started", Milliseconds(exchange.started)},
                    {"milliseconds", Milliseconds(exchange.took)},
                    {"sent", HexText(exchange.sent, "")},
                    {"received", HexText(exchange.received, "")}});
  }
  return list;
}

ordered_json AnswerJson(const Answer& answer) {
  return {{"reply", ReplyWord(answer)}, {"by", answer.by}, {"at", TimeText(answer.at)}};
}

ordered_json LimitsJson(const std::vector<JudgedLimit>& limits) {
  ordered_json list = ordered_json::array();
  for (const JudgedLimit& limit : limits) {
    ordered_json object = {{"reading", limit.reading}, {"limit", limit.stated}, {"value", limit.value}};
    if (!limit.unit.empty()) object["unit"] = limit.unit;
    object["verdict"] = VerdictWord(limit.verdict);
    list.push_back(std::move(object));
  }
  return list;
}

ordered_json ProgramJson(const ProgramRecord& program) {
  ordered_json object = {{"words", program.words}};
  if (program.exit_status) object["exit-status"] = *program.exit_status;
  if (program.signal) object["signal"] = *program.signal;
  return object;
}

ordered_json PhoneJson(const PlanResult& result) {
  const PhoneFacts facts = FactsOfPhone(result);
  ordered_json object = ordered_json::object();
  if (!facts.identity.empty()) object["identity"] = facts.identity;
  for (const auto& [name, text] : facts.versions) object["versions"][name] = text;
  return object;
}

ordered_json StepJson(std::size_t number, const StepResult& step) {
  ordered_json pictures = ordered_json::array();
  for (const Attachment& attachment : step.attachments)
    pictures.push_back(AttachmentFileName(number, attachment));
  ordered_json object = {{"name", step.name}};
  if (!step.command.empty()) object["command"] = step.command;
  if (!step.question.empty()) object["question"] = step.question;
  if (step.answer && !step.answer->by.empty()) object["answer"] = AnswerJson(*step.answer);
  if (step.program) object["program"] = ProgramJson(*step.program);
  object["verdict"] = VerdictWord(step.verdict);
  if (!step.message.empty()) object["message"] = step.message;
  object["attempts"] = step.attempts;
  object["milliseconds"] = Milliseconds(step.took);
  object["readings"] = ReadingsJson(step.readings);
  object["limits"] = LimitsJson(step.limits);
  object["pictures"] = std::move(pictures);
  object["exchanges"] = ExchangesJson(step.transcript.kept);
  const std::size_t left_out = step.transcript.count - step.transcript.kept.size();
  if (left_out != 0) object["exchanges-left-out"] = left_out;
  return object;
}

ordered_json Head(const PlanResult& result) {
  ordered_json head = {{"plan", result.plan},
                       {"plan-file", result.plan_file},
                       {"plan-sha256", result.plan_sha256},
                       {"station", result.origin.station},
                       {"operator", result.origin.person},
                       {"tool-version", result.origin.tool_version},
                       {"port", result.port},
                       {"phone", PhoneJson(result)},
                       {"verdict", VerdictWord(result.verdict)},
                       {"started", TimeText(result.started)},
                       {"ended", TimeText(result.ended)},
                       {"milliseconds", Milliseconds(result.took)}};
  if (!result.slot.empty()) head["slot"] = result.slot;
  if (const auto& executable = result.executable) {
    head["executable"] = {
        {"path", executable->path}, {"processor", executable->processor}, {"sha256", executable->sha256}};
  }
  return head;
}

ordered_json RecordJson(const PlanResult& result) {
  ordered_json record = Head(result);
  record["milliseconds-waited"] = Milliseconds(result.waited);
  record["variables"] = ordered_json::object();
  for (const auto& [name, value] : result.variables) record["variables"][name] = value;
  record["steps"] = ordered_json::array();
  for (std::size_t i = 0; i < result.steps.size(); ++i)
    record["steps"].push_back(StepJson(i + 1, result.steps[i]));
  return record;
}

}  // namespace

std::string VerdictWord(Verdict verdict) {
  switch (verdict) {
    case Verdict::Passed:
      return "passed";
    case Verdict::Failed:
      return "device failure";
    case Verdict::Incomplete:
      return "incomplete";
    case Verdict::Aborted:
      return "aborted";
    case Verdict::NoLink:
      return "link failure";
    case Verdict::PlanWrong:
      return "plan error";
    case Verdict::OutputLost:
      return "output lost";
    case Verdict::Skipped:
      return "skipped";
  }
  return "";
}

double Milliseconds(std::chrono::microseconds time) {
  return static_cast<double>(time.count()) / 1000;
}

std::string ReportJson(const PlanResult& result) {
  return JsonText(RecordJson(result)) + "\n";
}

std::string ReportsJson(const std::vector<PlanResult>& results) {
  ordered_json records = ordered_json::array();
  for (const PlanResult& result : results) records.push_back(RecordJson(result));
  return JsonText(records) + "\n";
}

std::string SummaryJson(const std::vector<PlanResult>& results) {
  ordered_json summary = ordered_json::array();
  for (const PlanResult& result : results) {
    ordered_json line = Head(result);
    line["report"] = PortFileName(result.port) + "/report.json";
    summary.push_back(std::move(line));
  }
  return JsonText(summary) + "\n";
}

}  // namespace station
