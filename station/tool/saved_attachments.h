// The files of a stored run, written to a folder.
#pragma once

#include <string>

#include "station/results/history.h"

namespace station {

// Writes each file under its name, that of a step with the step's number before it, as reports name them:
// "07-blemish.jpg". Makes the folder. Throws ResultsError and OutputLost.
void SaveAttachments(Connection& connection, const RunRow& run, const std::string& folder);

}  // namespace station
