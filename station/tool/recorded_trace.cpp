#include "station/tool/recorded_trace.h"

#include <fmt/format.h>

#include <cmath>
#include <sstream>
#include <utility>

#include "station/commands/errors.h"
#include "station/tasks/operation.h"

namespace station {

std::vector<RecordedPiece> ReadTrace(const std::string& path) {
  constexpr std::size_t LARGEST = 256u << 20;
  constexpr double LONGEST = 1e8;  // seconds, some years: it can be counted in any unit
  std::istringstream file(ReadFile(path, LARGEST));
  std::string line;
  if (!std::getline(file, line) || line != "# phonetest trace 1") {
    throw UsageError(fmt::format("{} is not a trace of phonetest", path));
  }
  std::vector<RecordedPiece> pieces;
  std::string remark;
  for (std::size_t number = 2; std::getline(file, line); ++number) {
    if (line.empty() || line.starts_with('#')) continue;
    std::istringstream words(line);
    double seconds = -1;
    char direction = 0;
    std::string rest;
    words >> seconds >> direction >> std::ws;
    std::getline(words, rest);
    const bool is_line = direction == '#' || direction == '>' || direction == '<';
    if (!is_line || !(seconds >= 0 && seconds <= LONGEST))
      throw UsageError(fmt::format("{}, line {}: this is not a line of a trace", path, number));
    if (direction == '#') {
      remark = rest;
      continue;
    }
    RecordedPiece piece{.line = number};
    piece.time = std::chrono::milliseconds(std::llround(seconds * 1000));
    piece.sent = direction == '>';
    piece.bytes = BytesFromHex(rest);
    piece.remark = remark;
    if (!piece.sent && !pieces.empty() && !pieces.back().sent) {
      pieces.back().bytes.insert(pieces.back().bytes.end(), piece.bytes.begin(), piece.bytes.end());
    } else {
      pieces.push_back(std::move(piece));
    }
  }
  return pieces;
}

}  // namespace station
