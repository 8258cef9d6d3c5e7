#include <strings.h>

#include <algorithm>

#include "station/line/record_pages.h"
#include "station/plan/limit.h"

namespace station {

namespace {

using nlohmann::ordered_json;
using web::Refused;
using web::Visit;

constexpr std::size_t MOST_RUNS = 200;

ordered_json RowJson(const RunRow& run) {
  return {{"run", run.uuid},
          {"plan", run.plan},
          {"verdict", StoredVerdictWord(run.verdict)},
          {"serial", run.serial},
          {"identity", run.identity},
          {"address", run.address},
          {"station", run.station},
          {"operator", run.person},
          {"slot", run.slot},
          {"started", run.started},
          {"milliseconds",
           run.ended == 0 ? ordered_json() : ordered_json(static_cast<double>(run.microseconds) / 1000)}};
}

ordered_json NumberJson(const std::optional<double>& value) {
  return value ? ordered_json(*value) : ordered_json();
}

// What a limit that is no range wants, in words.
std::string StatedText(const StoredValue& value) {
  if (value.stated.empty()) return "";
  try {
    return LimitText(ParseLimit(value.reading, nlohmann::json::parse(value.stated)));
  } catch (const std::exception&) {
    return value.stated;  // of another version
  }
}

ordered_json ValueJson(const StoredValue& value) {
  return {{"reading", value.reading},
          {"unit", value.unit},
          {"value", NumberJson(value.value)},
          {"text", value.text},
          {"minimum", NumberJson(value.minimum)},
          {"maximum", NumberJson(value.maximum)},
          {"stated", StatedText(value)},
          {"verdict", StoredVerdictWord(value.verdict)}};
}

// Of a step, or with 0 of the whole run.
ordered_json FilesJson(const std::vector<AttachmentRow>& files, int step) {
  ordered_json json = ordered_json::array();
  for (const AttachmentRow& file : files) {
    if (file.step == step) json.push_back({{"name", file.name}, {"type", file.type}});
  }
  return json;
}

ordered_json StepJson(const StoredStep& step, const std::vector<AttachmentRow>& files) {
  ordered_json json = {{"number", step.number},     {"name", step.name},
                       {"question", step.question}, {"verdict", StoredVerdictWord(step.verdict)},
                       {"attempts", step.attempts}, {"microseconds", step.microseconds},
                       {"message", step.message},   {"answer", nullptr}};
  if (step.answer) {
    json["answer"] = {{"reply", step.answer->reply}, {"by", step.answer->by}, {"at", step.answer->at}};
  }
  json["values"] = ordered_json::array();
  for (const StoredValue& value : step.values) json["values"].push_back(ValueJson(value));
  json["files"] = FilesJson(files, step.number);
  return json;
}

RunRow Found(Connection& connection, const std::string& id) {
  const auto run = FindRun(connection, id);
  if (!run) throw Refused(404, "There is no such run.");
  return *run;
}

ordered_json Report(Connection& connection, const std::string& id) {
  const RunRow run = Found(connection, id);
  ordered_json report = RowJson(run);
  report["port"] = run.port;
  report["tool"] = run.tool_version;
  report["plan_sha256"] = run.plan_sha256;
  report["executable_sha256"] = run.executable_sha256;
  report["versions"] = ordered_json::parse(run.versions, nullptr, false);
  report["variables"] = ordered_json::parse(run.variables, nullptr, false);
  const std::vector<AttachmentRow> files = AttachmentsOfRun(connection, run.key);
  report["files"] = FilesJson(files, 0);
  report["steps"] = ordered_json::array();
  for (const StoredStep& step : StepsOfRun(connection, run.key))
    report["steps"].push_back(StepJson(step, files));
  return report;
}

// What the browser saves a file as. A page is saved as a text: opened from the disk it must not run either.
std::string SavedName(const std::string& name) {
  constexpr std::string_view PLAIN = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
  std::string saved = name;
  for (char& character : saved) {
    if (PLAIN.find(character) == std::string_view::npos) character = '_';
  }
  if (saved.empty() || saved.front() == '.') saved.insert(0, "_");
  const std::string ending = saved.substr(std::min(saved.rfind('.'), saved.size()));
  for (const char* page : {".html", ".htm", ".xhtml", ".xml", ".svg"}) {
    if (strcasecmp(ending.c_str(), page) == 0) saved += ".txt";
  }
  return saved;
}

// A picture for the page, and anything else for the disk: what a phone has sent must not run in the browser.
web::Reply FileOf(Connection& connection, const std::string& id, const std::string& step,
                  const std::string& name) {
  const std::vector<AttachmentRow> files = AttachmentsOfRun(connection, Found(connection, id).key);
  const auto file = std::ranges::find_if(
      files, [&](const AttachmentRow& one) { return std::to_string(one.step) == step && one.name == name; });
  const auto content = file == files.end() ? std::nullopt : connection.Content(file->sha256);
  if (!content) throw Refused(404, "There is no such file.");
  const bool picture = file->type == "image/png" || file->type == "image/jpeg";
  return {.content_type = picture ? file->type : "application/octet-stream",
          .body = *content,
          .file_name = picture ? "" : SavedName(name)};
}

}  // namespace

void ServeHistory(web::PageServer& server, const ResultsStore& store) {
  server.Get("/runs", [&store](const Visit& visit) -> web::Reply {
    Connection connection = ConnectForPage(store);
    ordered_json rows = ordered_json::array();
    for (const RunRow& run : FindRuns(connection, FilterOf(visit), MOST_RUNS)) rows.push_back(RowJson(run));
    return JsonReply(rows);
  });
  server.Get("/runs/([0-9a-f-]+)", [&store](const Visit& visit) -> web::Reply {
    Connection connection = ConnectForPage(store);
    return JsonReply(Report(connection, visit.places.at(0)));
  });
  server.Get("/runs/([0-9a-f-]+)/files/([0-9]+)/([^/]+)", [&store](const Visit& visit) {
    Connection connection = ConnectForPage(store);
    return FileOf(connection, visit.places.at(0), visit.places.at(1), visit.places.at(2));
  });
}

}  // namespace station
