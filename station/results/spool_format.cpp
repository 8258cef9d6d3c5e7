#include "station/results/spool_format.h"

#include <nlohmann/json.hpp>

#include "station/commands/bytes.h"

// The library finds these by the name of the type's namespace.
namespace nlohmann {
template <typename T>
struct adl_serializer<std::optional<T>> {
  static void to_json(json& to, const std::optional<T>& from) {
    to = from ? json(*from) : json();
  }
  static void from_json(const json& from, std::optional<T>& to) {
    if (!from.is_null()) to = from.get<T>();
  }
};
}  // namespace nlohmann

namespace station {

using nlohmann::json;

void to_json(json& to, const StoredFile& from) {
  const Bytes bytes(from.content.begin(), from.content.end());
  to = {{"name", from.name}, {"type", from.type}, {"content", HexText(bytes, "")}};
}

void from_json(const json& from, StoredFile& to) {
  const Bytes bytes = BytesFromHex(from.at("content").get<std::string>());
  to = {from.at("name"), from.at("type"), std::string(bytes.begin(), bytes.end())};
}

// A run may have been spooled by another version of this program: what it did not know is empty.
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(StoredAnswer, reply, by, at)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(StoredValue, reading, unit, value, text, minimum, maximum,
                                                stated, verdict)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(StoredStep, number, name, work, question, verdict, attempts,
                                                microseconds, message, values, answer, files)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(RunStart, uuid, plan, plan_file, plan_sha256, serial,
                                                identity, address, station, person, tool_version, port, slot,
                                                process, started, variables)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(RunEnd, verdict, ended, microseconds, microseconds_waited,
                                                identity, address, versions, executable, executable_sha256,
                                                files)

namespace {

template <typename T>
std::string Line(const char* kind, const T& content) {
  return json({{kind, content}}).dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

std::string SpoolLine(const RunStart& start) {
  return Line("start", start);
}

std::string SpoolLine(const StoredStep& step) {
  return Line("step", step);
}

std::string SpoolLine(const RunEnd& end) {
  return Line("end", end);
}

SpooledLine ParseSpoolLine(const std::string& line) {
  SpooledLine parsed;
  try {
    const json object = json::parse(line);
    if (object.contains("start")) parsed.start = object["start"].get<RunStart>();
    if (object.contains("step")) parsed.step = object["step"].get<StoredStep>();
    if (object.contains("end")) parsed.end = object["end"].get<RunEnd>();
  } catch (const std::exception&) {
    return {};
  }
  // Without these two it is not known which run this is.
  if (parsed.start && (parsed.start->uuid.empty() || parsed.start->plan.empty())) return {};
  return parsed;
}

}  // namespace station
