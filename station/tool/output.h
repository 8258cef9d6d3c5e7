// How results are shown: for a person, or as one JSON object for a program.
#pragma once

#include <string>

#include "station/tasks/operation.h"

namespace station {

// Writes the outcome to standard output, and the text of a failure to standard error.
void ShowOutcome(const Operation& operation, Session& session, const Outcome& outcome, bool json);

// The same for a link that failed.
void ShowLinkFailure(const Operation& operation, const std::string& port, const std::string& failure,
                     bool json);

}  // namespace station
