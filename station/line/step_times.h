// How long a plan's steps took on the phones before, to say how long a phone will still take.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "station/plan/runner.h"

namespace station {

class StepTimes {
 public:
  // Takes the times of the steps that ran.
  void Add(const std::vector<StepResult>& steps);
  // `step` is its number, from 0.
  void Add(std::size_t step, std::chrono::microseconds took);

  // The middle one of the newest times; nothing if the step has not run yet.
  std::optional<std::chrono::microseconds> Usual(std::size_t step) const;

  // The time from here to the plan's end. `running` is the number of the step that runs and `elapsed` its
  // time so far. Nothing if no step that is to come has run before.
  std::optional<std::chrono::microseconds> Left(const Plan& plan, std::size_t running,
                                                std::chrono::microseconds elapsed) const;

 private:
  mutable std::mutex mutex_;
  std::map<std::size_t, std::deque<std::chrono::microseconds>> times_;
};

}  // namespace station
