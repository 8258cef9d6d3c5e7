// The trials that a campaign has made, in a file from which it can go on.
#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "station/campaign/trial.h"

namespace station {

nlohmann::ordered_json TrialJson(const Trial& trial);

class StateFile {
 public:
  // Begins a new file for the plan, or with `resume` goes on with what is there. Throws UsageError if the
  // file belongs to another plan, and OutputLost.
  StateFile(const std::string& path, const std::string& plan_sha256, bool resume);

  const std::vector<Trial>& Made() const {
    return made_;
  }

  // Throws OutputLost.
  void Add(const Trial& trial);

 private:
  std::string path_;
  std::vector<Trial> made_;
  std::ofstream file_;
};

}  // namespace station
