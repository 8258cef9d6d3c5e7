#include "station/line/run_progress.h"

#include <algorithm>
#include <utility>

#include "station/commands/clean_text.h"
#include "station/results/record.h"

namespace station {

namespace {

using nlohmann::ordered_json;

char Mark(Verdict verdict) {
  if (verdict == Verdict::Passed) return 'p';
  return verdict == Verdict::Skipped ? '-' : 'f';
}

double Seconds(Clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

// For the page; nothing if it cannot be read, which the run's record tells.
std::optional<Attachment> PictureIn(const std::string& path) {
  constexpr std::size_t LARGEST = 16u << 20;
  try {
    const std::string content = ReadFile(path, LARGEST);
    const char* type = content.starts_with("\x89PNG") ? "image/png" : "image/jpeg";
    return Attachment{"question", type, Bytes(content.begin(), content.end())};
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace

void RunProgress::Clear() {
  run_ = nullptr;
  marks_.clear();
  picture_.reset();
}

void RunProgress::Begin(std::shared_ptr<const PhoneRun> run) {
  run_ = std::move(run);
  step_ = 0;
  started_ = step_started_ = Clock::now();
}

void RunProgress::End() {
  run_ = nullptr;
  picture_.reset();
}

void RunProgress::StepStarted(std::size_t step) {
  step_ = step;
  step_started_ = Clock::now();
  marks_.resize(step, '-');
  const Step& started = run_->GetPlan().steps[step];
  if (started.kind == Step::Kind::Question && !started.picture.empty()) picture_ = PictureIn(started.picture);
}

void RunProgress::StepFinished(std::size_t step, const StepResult& result) {
  marks_.resize(std::max(marks_.size(), step + 1), '-');
  marks_[step] = Mark(result.verdict);
  const bool pictured = result.attempts > 0 && !result.attachments.empty();
  if (pictured) picture_ = result.attachments.back();
  if (result.attempts > 0 && !pictured) picture_.reset();
}

ordered_json RunProgress::View(const StepTimes& times, const std::optional<OpenQuestion>& question) const {
  if (run_ == nullptr) return nullptr;
  const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - step_started_);
  const Plan& plan = run_->GetPlan();
  const auto left = times.Left(plan, step_, elapsed);
  ordered_json view = {{"step", step_ + 1},
                       {"steps", plan.steps.size()},
                       {"name", CleanText(plan.steps[step_].name)},
                       {"seconds", Seconds(Clock::now() - started_)},
                       {"left", left ? ordered_json(Seconds(*left)) : ordered_json()}};
  view["question"] = question ? ordered_json{{"number", question->number},
                                             {"text", CleanText(question->text)},
                                             {"picture", picture_.has_value()}}
                              : ordered_json();
  return view;
}

}  // namespace station
