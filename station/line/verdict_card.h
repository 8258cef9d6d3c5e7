// The words at a run's end, which the operator reads from two metres away.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "station/line/line_store.h"

namespace station {

// {"word": "FAIL", "kind": "fail", "sign": "✗", "failures": [{"step", "text"}], "run", "problem"}. It is
// made of the stored run alone, so what was seen is what is stored. `kind` is "pass", "fail" or "other".
nlohmann::ordered_json VerdictCard(const LineRun& run);

// The same for a phone that was not tested, with the reason in a sentence.
nlohmann::ordered_json RefusalCard(const std::string& sentence);

}  // namespace station
