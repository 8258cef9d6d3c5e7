#include "station/plan/runner.h"

#include <fmt/format.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <list>

#include "posix/nearest_words.h"
#include "station/link/interruption.h"
#include "station/plan/host_program.h"

namespace station {

namespace {

struct Judgement {
  Verdict verdict = Verdict::Passed;
  std::string message;
};

std::chrono::microseconds Since(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
}

// Compares one limit with its reading, which `judged` then has. A failed answer has no readings, which is not
// the plan's mistake.
Judgement JudgeOne(const Limit& limit, const Outcome& outcome, const std::vector<Reading>& readings,
                   JudgedLimit& judged) {
  const bool status = limit.reading == "status" && outcome.status;
  const auto reading = std::ranges::find(readings, limit.reading, &Reading::name);
  if (!status && reading == readings.end()) {
    if (!outcome.failure.empty()) return {Verdict::Failed, outcome.failure};
    std::vector<std::string> known = {"status"};
    for (const Reading& each : readings) known.push_back(each.name);
    return {Verdict::PlanWrong, fmt::format("the answer has no \"{}\"{}", limit.reading,
                                            posix::DidYouMean(limit.reading, known))};
  }
  judged.value = status ? nlohmann::ordered_json(*outcome.status) : reading->value;
  judged.unit = status ? "" : reading->unit;
  try {
    const std::string wrong = JudgeLimit(limit, judged.value);
    if (wrong.empty()) return {};
    return {Verdict::Failed, status && !outcome.failure.empty() ? outcome.failure : wrong};
  } catch (const PlanError& error) {
    return {Verdict::PlanWrong, error.what()};
  }
}

std::vector<JudgedLimit> Unjudged(const Step& step) {
  std::vector<JudgedLimit> limits;
  for (const Limit& limit : step.limits) {
    limits.push_back({.reading = limit.reading, .stated = limit.stated, .text = LimitText(limit)});
  }
  return limits;
}

// A limit on the status decides about it. Without one, a failure of the operation is a failure of the step.
// All limits are judged; the first broken one decides.
Judgement JudgeOutcome(const Step& step, const Outcome& outcome, StepResult& done) {
  const bool status_limited = std::ranges::find(step.limits, "status", &Limit::reading) != step.limits.end();
  if (!outcome.failure.empty() && !(status_limited && outcome.status))
    return {Verdict::Failed, outcome.failure};
  Judgement first;
  for (std::size_t i = 0; i < step.limits.size(); ++i) {
    Judgement one = JudgeOne(step.limits[i], outcome, done.readings, done.limits[i]);
    if (!done.limits[i].value.is_null()) done.limits[i].verdict = one.verdict;
    if (first.verdict == Verdict::Passed) first = std::move(one);
  }
  return first;
}

std::string CommandText(const Step& step) {
  if (step.operation == nullptr) return "";
  std::string text = step.operation->words;
  for (const auto& [name, value] : step.arguments) text += fmt::format(" {}={}", name, TextOf(value));
  return text;
}

// A step's result before it has run.
StepResult Begun(const Step& step) {
  StepResult result{.name = step.name, .command = CommandText(step), .question = step.question};
  if (step.operation != nullptr) result.operation = step.operation->words;
  if (!step.program.empty()) result.program = {.words = step.program};
  result.limits = Unjudged(step);
  return result;
}

PlanResult BegunPlan(const Plan& plan, const std::string& port) {
  PlanResult result{.plan = plan.name, .plan_file = plan.file, .plan_sha256 = plan.sha256, .port = port};
  result.variables = plan.variables;
  result.started = result.ended = std::time(nullptr);
  return result;
}

void NoteEnding(StepResult& result, const HostProgram& program) {
  const auto status = program.WaitStatus();
  if (!status) return;
  if (WIFEXITED(*status)) result.program->exit_status = WEXITSTATUS(*status);
  if (WIFSIGNALED(*status)) result.program->signal = WTERMSIG(*status);
}

void AttachPicture(StepResult& result, const std::string& path) {
  constexpr std::size_t LARGEST = 16u << 20;
  const std::string content = ReadFile(path, LARGEST);
  const std::string name = path.substr(path.rfind('/') + 1);
  const char* type = content.starts_with("\x89PNG") ? "image/png" : "image/jpeg";
  result.attachments.push_back({name, type, Bytes(content.begin(), content.end())});
}

class Run {
 public:
  Run(const Plan& plan, Session& session, Operator& person, const RunControl& control)
      : plan_(plan), session_(session), person_(person), control_(control) {}

  PlanResult All() {
    PlanResult result = BegunPlan(plan_, session_.Port());
    const Clock::time_point start = Clock::now();
    bool ended = false;
    bool aborted = false;
    for (std::size_t i = 0; i < plan_.steps.size(); ++i) {
      const Step& step = plan_.steps[i];
      StepResult done = Begun(step);
      if (step.wanted && Interrupted()) {
        // Between two steps: this one would have been the next.
        CleanUpFromHere();
        aborted = ended = true;
        done.verdict = Verdict::Aborted;
        done.message = "not run: the plan was aborted";
      }
      if (step.wanted && (!ended || step.always)) {
        if (control_.started) control_.started(i, step.name);
        Attempts(step, done);
        ended = ended || lost_ || (step.stops && done.verdict != Verdict::Passed);
        if (done.verdict == Verdict::Aborted) {
          CleanUpFromHere();
          aborted = ended = true;
        }
      } else if (done.message.empty()) {
        done.message = !step.wanted ? (step.missed ? "not run: its value is not set" : "not asked for")
                       : aborted    ? "not run: the plan was aborted"
                       : lost_      ? "not run: the link is lost"
                                    : "not run: the plan has ended";
      }
      if (step.missed) result.verdict = std::max(result.verdict, Verdict::Incomplete);
      result.verdict = std::max(result.verdict, done.verdict);
      if (control_.finished) control_.finished(i, done);
      result.steps.push_back(std::move(done));
    }
    if (!aborted) FinishBackground(result);
    result.took = Since(start);
    result.ended = std::time(nullptr);
    result.waited = waited_;
    return result;
  }

 private:
  void Attempts(const Step& step, StepResult& done) {
    const Clock::time_point start = Clock::now();
    session_.TakeTranscript();
    do {
      if (done.attempts > 0 && !WaitForRetry(step, done)) break;
      ++done.attempts;
      Once(step, done);
    } while ((done.verdict == Verdict::Failed || done.verdict == Verdict::NoLink) && !lost_ &&
             done.attempts <= step.retries);
    done.took = Since(start);
    done.transcript = session_.TakeTranscript();
  }

  // Returns false if the wait was interrupted; the step is aborted then.
  static bool WaitForRetry(const Step& step, StepResult& done) {
    try {
      SleepUnlessInterrupted(step.retry_wait);
      return true;
    } catch (const Aborted& aborted) {
      done.verdict = Verdict::Aborted;
      done.message = aborted.what();
      return false;
    }
  }

  void Once(const Step& step, StepResult& done) {
    Judgement judgement;
    done.readings.clear();
    done.attachments.clear();
    done.limits = Unjudged(step);
    try {
      for (int i = 0; i < step.repeat && judgement.verdict == Verdict::Passed; ++i)
        judgement = Work(step, done);
      // Without its success a step need not have made its picture.
      const bool passed = judgement.verdict == Verdict::Passed;
      if (!step.picture.empty() && (passed || std::filesystem::is_regular_file(step.picture)))
        AttachPicture(done, step.picture);
    } catch (const Aborted& aborted) {
      judgement = {Verdict::Aborted, aborted.what()};
    } catch (const LinkLost& failure) {
      lost_ = true;
      judgement = {Verdict::NoLink, failure.what()};
    } catch (const LinkFailure& failure) {
      judgement = {Verdict::NoLink, failure.what()};
    } catch (const OutputLost& lost) {
      judgement = {Verdict::OutputLost, lost.what()};
    } catch (const std::exception& error) {
      judgement = {Verdict::PlanWrong, error.what()};
    }
    done.verdict = judgement.verdict;
    done.message = judgement.message;
  }

  Judgement Work(const Step& step, StepResult& done) {
    if (step.kind == Step::Kind::Command) return Command(step, done);
    const Clock::time_point start = Clock::now();
    Judgement judgement;
    if (step.kind == Step::Kind::Wait) SleepUnlessInterrupted(step.wait);
    if (step.kind == Step::Kind::Question) judgement = Question(step, done);
    if (step.kind == Step::Kind::Program) judgement = Program(step, done);
    waited_ += Since(start);
    return judgement;
  }

  Judgement Command(const Step& step, StepResult& done) {
    Outcome outcome = Perform(*step.operation, session_, step.arguments);
    done.readings = std::move(outcome.readings);
    for (Picture& picture : outcome.pictures) {
      done.attachments.push_back({picture.name + ".jpg", "image/jpeg", std::move(picture.jpeg)});
    }
    return JudgeOutcome(step, outcome, done);
  }

  Judgement Question(const Step& step, StepResult& done) {
    done.answer = Answer{.question = step.question};
    person_.Ask(session_.Port(), step.name, step.time_limit, *done.answer);
    if (done.answer->reply == Answer::Reply::Pass) return {};
    if (done.answer->reply == Answer::Reply::Silence) return {Verdict::Failed, "the operator did not answer"};
    return {Verdict::Failed, fmt::format("answered with fail ({})", done.answer->by)};
  }

  Judgement Program(const Step& step, StepResult& done) {
    HostProgram program(step.program);
    if (step.background) {
      background_.push_back({static_cast<std::size_t>(&step - plan_.steps.data()), std::move(program)});
      return {};
    }
    const std::string failure = program.Wait(step.time_limit);
    NoteEnding(done, program);
    if (!program.Output().empty()) done.readings = {{"output", program.Output(), program.Output()}};
    if (!failure.empty()) return {Verdict::Failed, failure};
    return {};
  }

  // Programs in the background are judged at the end.
  void FinishBackground(PlanResult& result) {
    for (Background& background : background_) {
      StepResult& done = result.steps[background.step];
      try {
        const std::string failure = background.program.Wait(plan_.steps[background.step].time_limit);
        NoteEnding(done, background.program);
        if (failure.empty()) continue;
        done.verdict = Verdict::Failed;
        done.message = failure;
      } catch (const Aborted& aborted) {
        done.verdict = Verdict::Aborted;
        done.message = aborted.what();
      }
      result.verdict = std::max(result.verdict, done.verdict);
      if (control_.finished) control_.finished(background.step, done);
    }
  }

  struct Background {
    std::size_t step;
    HostProgram program;
  };

  const Plan& plan_;
  Session& session_;
  Operator& person_;
  const RunControl& control_;
  // The port has hung up, so no command can succeed any more. The plan ends, even if failures do not end it.
  bool lost_ = false;
  std::chrono::microseconds waited_{0};
  std::list<Background> background_;
};

}  // namespace

PlanResult RunPlan(const Plan& plan, Session& session, Operator& person, const RunControl& control) {
  return Run(plan, session, person, control).All();
}

PlanResult UnstartedPlan(const Plan& plan, const std::string& port, const std::string& failure,
                         Verdict verdict) {
  PlanResult result = BegunPlan(plan, port);
  result.verdict = verdict;
  for (const Step& step : plan.steps) {
    result.steps.push_back(Begun(step));
    result.steps.back().message = "not run: the plan could not start";
  }
  result.steps.front().verdict = verdict;
  result.steps.front().message = failure;
  return result;
}

std::string VerdictText(Verdict verdict) {
  switch (verdict) {
    case Verdict::Passed:
      return "passed";
    case Verdict::Failed:
      return "FAILED";
    case Verdict::Incomplete:
      return "INCOMPLETE";
    case Verdict::Aborted:
      return "ABORTED";
    case Verdict::NoLink:
      return "NO LINK";
    case Verdict::PlanWrong:
      return "PLAN ERROR";
    case Verdict::OutputLost:
      return "OUTPUT LOST";
    case Verdict::Skipped:
      return "skipped";
  }
  return "";
}

ExitStatus VerdictStatus(Verdict verdict) {
  switch (verdict) {
    case Verdict::Passed:
    case Verdict::Skipped:
      return ExitStatus::Passed;
    case Verdict::Failed:
      return ExitStatus::DeviceFailure;
    case Verdict::Incomplete:
      return ExitStatus::Incomplete;
    case Verdict::Aborted:
      return ExitStatus::Aborted;
    case Verdict::NoLink:
      return ExitStatus::LinkFailure;
    case Verdict::PlanWrong:
      return ExitStatus::PlanError;
    case Verdict::OutputLost:
      return ExitStatus::OutputLost;
  }
  return ExitStatus::PlanError;
}

std::size_t CountVerdict(const PlanResult& result, Verdict verdict) {
  return static_cast<std::size_t>(std::ranges::count(result.steps, verdict, &StepResult::verdict));
}

}  // namespace station
