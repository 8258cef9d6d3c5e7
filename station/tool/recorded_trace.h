// A trace that `phonetest --trace` wrote, read back.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "station/commands/bytes.h"

namespace station {

// Bytes of one direction. The pieces in which an answer arrived are joined: they may be different next time.
struct RecordedPiece {
  std::size_t line;                   // of the trace
  std::chrono::milliseconds time{0};  // since the recording began
  bool sent = false;
  Bytes bytes = {};
  std::string remark = {};  // the last one before it; it names the command
};

// Throws UsageError for a file that is not a trace.
std::vector<RecordedPiece> ReadTrace(const std::string& path);

}  // namespace station
