#include "station/line/step_times.h"

#include <algorithm>

namespace station {

using std::chrono::microseconds;

void StepTimes::Add(const std::vector<StepResult>& steps) {
  for (std::size_t i = 0; i < steps.size(); ++i) {
    if (steps[i].attempts > 0 && steps[i].verdict == Verdict::Passed) Add(i, steps[i].took);
  }
}

void StepTimes::Add(std::size_t step, microseconds took) {
  // Enough for a middle that one slow operator does not move.
  constexpr std::size_t KEPT = 9;
  const std::lock_guard lock(mutex_);
  std::deque<microseconds>& times = times_[step];
  times.push_back(took);
  if (times.size() > KEPT) times.pop_front();
}

std::optional<microseconds> StepTimes::Usual(std::size_t step) const {
  const std::lock_guard lock(mutex_);
  const auto found = times_.find(step);
  if (found == times_.end()) return std::nullopt;
  std::vector<microseconds> times(found->second.begin(), found->second.end());
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::ranges::nth_element(times, middle);
  return *middle;
}

std::optional<microseconds> StepTimes::Left(const Plan& plan, std::size_t running,
                                            microseconds elapsed) const {
  microseconds left{0};
  bool known = false;
  for (std::size_t i = running; i < plan.steps.size(); ++i) {
    const auto usual = plan.steps[i].wanted ? Usual(i) : std::nullopt;
    if (!usual) continue;
    known = true;
    left += i == running ? std::max(*usual - elapsed, microseconds(0)) : *usual;
  }
  return known ? std::optional(left) : std::nullopt;
}

}  // namespace station
