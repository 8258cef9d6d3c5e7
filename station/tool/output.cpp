#include "station/tool/output.h"

#include <fmt/format.h>

#include <algorithm>

namespace station {

namespace {

using nlohmann::ordered_json;

double Milliseconds(std::chrono::microseconds time) {
  return static_cast<double>(time.count()) / 1000;
}

ordered_json Describe(const Operation& operation, const std::string& port) {
  return {{"command", operation.words}, {"port", port}};
}

void ShowJson(const Operation& operation, const Session& session, const Outcome& outcome,
              const std::string& port) {
  ordered_json result = Describe(operation, port);
  result["result"] = outcome.failure.empty() ? "passed" : "device failure";
  if (!outcome.failure.empty()) result["failure"] = outcome.failure;
  result["answer"] = ReadingsJson(outcome.readings);
  std::chrono::microseconds took{0};
  for (const Exchange& exchange : session.Exchanges()) took += exchange.took;
  result["milliseconds"] = Milliseconds(took);
  result["exchanges"] = session.Exchanges().size();
  if (!session.Exchanges().empty()) {
    result["sent"] = HexText(session.Exchanges().back().sent, "");
    result["received"] = HexText(session.Exchanges().back().received, "");
  }
  fmt::print("{}\n", result.dump(2));
}

}  // namespace

nlohmann::ordered_json ReadingsJson(const std::vector<Reading>& readings) {
  ordered_json object = ordered_json::object();
  for (const Reading& reading : readings) object[reading.name] = reading.value;
  return object;
}

std::string ReadingsText(const std::vector<Reading>& readings) {
  if (readings.size() == 1) {
    const std::string& text = readings.front().text;
    return (text.starts_with('\n') ? text.substr(1) : text) + "\n";
  }
  std::size_t width = 0;
  for (const Reading& reading : readings) width = std::max(width, reading.name.size());
  std::string lines;
  for (const Reading& reading : readings)
    lines += fmt::format("{:<{}}  {}\n", reading.name + ":", width + 1, reading.text);
  return lines;
}

void ShowOutcome(const Operation& operation, const Session& session, const Outcome& outcome, bool json) {
  if (json) {
    ShowJson(operation, session, outcome, session.Port());
    return;
  }
  if (!outcome.failure.empty()) {
    fmt::print(stderr, "phonetest: {} failed: {}\n", operation.words, outcome.failure);
    return;
  }
  if (!outcome.readings.empty()) fmt::print("{}", ReadingsText(outcome.readings));
  if (!outcome.remark.empty()) fmt::print("{}\n", outcome.remark);
  if (outcome.readings.empty() && outcome.remark.empty() && !outcome.silent) fmt::print("ok\n");
}

void ShowLinkFailure(const Operation& operation, const std::string& port, const std::string& failure,
                     bool json) {
  if (!json) {
    fmt::print(stderr, "phonetest: {}\n", failure);
    return;
  }
  ordered_json result = Describe(operation, port);
  result["result"] = "link failure";
  result["failure"] = failure;
  fmt::print("{}\n", result.dump(2));
}

}  // namespace station
