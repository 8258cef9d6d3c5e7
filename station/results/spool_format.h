// The lines of a spooled run.
#pragma once

#include <optional>
#include <string>

#include "station/results/record.h"

namespace station {

// One of the three, or none if the line is not a whole one.
struct SpooledLine {
  std::optional<RunStart> start;
  std::optional<StoredStep> step;
  std::optional<RunEnd> end;
};

std::string SpoolLine(const RunStart& start);
std::string SpoolLine(const StoredStep& step);
std::string SpoolLine(const RunEnd& end);

SpooledLine ParseSpoolLine(const std::string& line);

}  // namespace station
