#include "station/tool/output.h"

#include <fmt/format.h>

#include <algorithm>

#include "posix/whole_output.h"
#include "station/commands/clean_text.h"
#include "station/report/report.h"

namespace station {

namespace {

using nlohmann::ordered_json;

ordered_json Describe(const Operation& operation, const std::string& port) {
  return {{"command", operation.words}, {"port", port}};
}

void ShowJson(const Operation& operation, Session& session, const Outcome& outcome, const std::string& port) {
  ordered_json result = Describe(operation, port);
  result["result"] = outcome.failure.empty() ? "passed" : "device failure";
  if (!outcome.failure.empty()) result["failure"] = outcome.failure;
  result["answer"] = ReadingsJson(outcome.readings);
  const Transcript transcript = session.TakeTranscript();
  result["milliseconds"] = Milliseconds(transcript.took);
  result["exchanges"] = transcript.count;
  if (!transcript.kept.empty()) {
    result["sent"] = HexText(transcript.kept.back().sent, "");
    result["received"] = HexText(transcript.kept.back().received, "");
  }
  posix::Print("{}\n", JsonText(result));
}

}  // namespace

void ShowOutcome(const Operation& operation, Session& session, const Outcome& outcome, bool json) {
  if (json) {
    ShowJson(operation, session, outcome, session.Port());
    return;
  }
  if (!outcome.failure.empty()) {
    fmt::print(stderr, "phonetest: {} failed: {}\n", operation.words, CleanText(outcome.failure));
    return;
  }
  if (!outcome.readings.empty()) posix::Print("{}", CleanText(ReadingsText(outcome.readings)));
  if (!outcome.remark.empty()) posix::Print("{}\n", CleanText(outcome.remark));
  if (outcome.readings.empty() && outcome.remark.empty() && !outcome.silent) posix::Print("ok\n");
}

void ShowLinkFailure(const Operation& operation, const std::string& port, const std::string& failure,
                     bool json) {
  if (!json) {
    fmt::print(stderr, "phonetest: {}\n", CleanText(failure));
    return;
  }
  ordered_json result = Describe(operation, port);
  result["result"] = "link failure";
  result["failure"] = failure;
  posix::Print("{}\n", JsonText(result));
}

}  // namespace station
