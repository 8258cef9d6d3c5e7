// Whether a run that has no end is still going on. On its own computer the process is looked for. Elsewhere a
// run counts as interrupted when its program has not been heard of for two minutes; it is heard of every 15
// seconds.
#pragma once

#include <chrono>
#include <string>

#include "station/results/connection.h"

namespace station {

constexpr std::chrono::seconds HEARTBEAT{15};
constexpr std::chrono::seconds LONGEST_SILENCE{120};

// The computer's boot, this process's world of process numbers, its number and its time of start: no two
// processes have the same.
std::string ThisProcess();

// Marks the runs whose program has ended without an end of theirs. Throws ResultsError.
void MarkInterrupted(Connection& connection);

}  // namespace station
