// A simulated phone of a campaign's own, in the background.
#pragma once

#include <string>
#include <vector>

namespace station {

class SimulatedPhone {
 public:
  // Boots it; its sleeps take no time. `journal` is a file for its journal, or empty. Throws UsageError.
  SimulatedPhone(const std::string& phonesim, const std::string& name, const std::string& journal);
  SimulatedPhone(const SimulatedPhone&) = delete;
  SimulatedPhone& operator=(const SimulatedPhone&) = delete;
  // Stops it; the thread cleans up from here on.
  ~SimulatedPhone();

  const std::string& Port() const {
    return port_;
  }

  // Returns what phonesim prints. Throws UsageError if it refuses.
  std::string Command(const std::vector<std::string>& words) const;

 private:
  std::string phonesim_;
  std::string name_;
  std::string port_;
};

// Runs a program and returns what it prints. Throws UsageError if it does not end with 0 in time, and
// Aborted.
std::string OutputOf(const std::vector<std::string>& words);

}  // namespace station
