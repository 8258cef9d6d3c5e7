// Sends the host's side of a recorded trace again.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "station/commands/errors.h"
#include "station/link/link.h"
#include "station/tool/answer_difference.h"
#include "station/tool/ignored_fields.h"

namespace station {

struct ReplayOrder {
  std::string trace_file;
  std::chrono::milliseconds longest_pause;               // longer recorded pauses are shortened to this
  std::optional<std::chrono::milliseconds> answer_time;  // instead of the recorded time plus a reserve
  IgnoredFields ignored = {};
};

struct ReplayResult {
  std::size_t sent = 0;
  std::size_t received = 0;
  std::string difference;  // the first one in lines of text; empty for none
  std::size_t line = 0;    // of the trace, where it is
  AnswerDifference explanation = {};
};

// Throws UsageError for a file that is not a trace, and LinkFailure if the link fails.
ReplayResult Replay(Link& link, const ReplayOrder& order);

}  // namespace station
