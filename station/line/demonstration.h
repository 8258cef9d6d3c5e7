// A line that runs by itself: plays the operator, who puts in one phone after the other, scans, and answers
// the questions.
#pragma once

#include <map>
#include <string>
#include <thread>

#include "station/line/line.h"

namespace station {

class Demonstration {
 public:
  // Plays until its end. The line must outlive it.
  explicit Demonstration(Line& line);

 private:
  void Play(const std::stop_token& stop);
  void Serve(LineSlot& slot, Clock::time_point now);
  void Scan(LineSlot& slot, const nlohmann::ordered_json& view);
  std::string NextValue(const std::string& name);

  Line& line_;
  std::map<std::string, Clock::time_point> seen_;  // when the slot was first seen as it is now
  std::map<std::string, std::string> states_;
  unsigned phones_ = 0;
  std::jthread thread_;
};

}  // namespace station
