// How results are shown: for a person, or as one JSON object for a program.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "station/tasks/operation.h"

namespace station {

// The readings as an object, by name.
nlohmann::ordered_json ReadingsJson(const std::vector<Reading>& readings);

// "name: text" lines; a single reading's text alone.
std::string ReadingsText(const std::vector<Reading>& readings);

// Writes the outcome to standard output, a failure's text to standard error.
void ShowOutcome(const Operation& operation, const Session& session, const Outcome& outcome, bool json);

// The same when the link failed.
void ShowLinkFailure(const Operation& operation, const std::string& port, const std::string& failure,
                     bool json);

}  // namespace station
