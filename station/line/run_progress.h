// How far a slot's run has come, as its card shows it: the step, a mark for each step before it, the time
// left, and the picture that a question is about. It has no lock of its own.
#pragma once

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "station/line/page_operator.h"
#include "station/line/step_times.h"
#include "station/plan/phone_run.h"

namespace station {

class RunProgress {
 public:
  // A phone without a run so far, or another one.
  void Clear();
  void Begin(std::shared_ptr<const PhoneRun> run);
  // The marks stay.
  void End();

  void StepStarted(std::size_t step);
  void StepFinished(std::size_t step, const StepResult& result);

  // The picture of the step before, or of the question.
  const std::optional<Attachment>& Picture() const {
    return picture_;
  }

  // A letter for each step so far: p passed, f failed, - not run.
  const std::string& Marks() const {
    return marks_;
  }
  // Null if no plan runs.
  nlohmann::ordered_json View(const StepTimes& times, const std::optional<OpenQuestion>& question) const;

 private:
  std::shared_ptr<const PhoneRun> run_;  // while it runs
  std::size_t step_ = 0;
  Clock::time_point step_started_;
  Clock::time_point started_;
  std::string marks_;
  std::optional<Attachment> picture_;
};

}  // namespace station
