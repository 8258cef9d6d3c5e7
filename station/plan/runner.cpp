#include "station/plan/runner.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <list>
#include <thread>

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

// The limits decide about a status that one of them names; a failure that no limit speaks of is a failure.
Judgement JudgeOutcome(const Step& step, const Outcome& outcome) {
  const bool status_limited = std::ranges::find(step.limits, "status", &Limit::reading) != step.limits.end();
  if (!outcome.failure.empty() && !(status_limited && outcome.status))
    return {Verdict::Failed, outcome.failure};
  for (const Limit& limit : step.limits) {
    if (limit.reading == "status" && outcome.status) {
      const std::string wrong = JudgeLimit(limit, *outcome.status);
      if (!wrong.empty()) return {Verdict::Failed, outcome.failure.empty() ? wrong : outcome.failure};
      continue;
    }
    const auto reading = std::ranges::find(outcome.readings, limit.reading, &Reading::name);
    if (reading == outcome.readings.end()) {
      return {Verdict::PlanWrong, fmt::format("the answer holds no \"{}\" to judge", limit.reading)};
    }
    const std::string wrong = JudgeLimit(limit, reading->value);
    if (!wrong.empty()) return {Verdict::Failed, wrong};
  }
  return {};
}

std::string CommandText(const Step& step) {
  if (step.operation == nullptr) return "";
  std::string text = step.operation->words;
  for (const auto& [name, value] : step.arguments) text += fmt::format(" {}={}", name, TextOf(value));
  return text;
}

void AttachPicture(StepResult& result, const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw PlanError(fmt::format("there is no picture {}", path));
  Bytes content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const bool png = content.size() > 4 && content[0] == 0x89 && content[1] == 'P';
  const std::string name = path.substr(path.rfind('/') + 1);
  result.attachments.push_back({name, png ? "image/png" : "image/jpeg", std::move(content)});
}

class Run {
 public:
  Run(const Plan& plan, Session& session, Operator& person)
      : plan_(plan), session_(session), person_(person) {}

  PlanResult All(const StepStarted& started) {
    PlanResult result{.plan = plan_.name, .port = session_.Port(), .variables = plan_.variables};
    result.started = std::time(nullptr);
    const Clock::time_point start = Clock::now();
    bool ended = false;
    for (std::size_t i = 0; i < plan_.steps.size(); ++i) {
      const Step& step = plan_.steps[i];
      StepResult done{.name = step.name, .command = CommandText(step)};
      if (step.wanted && (!ended || step.always)) {
        started(i, step.name);
        Attempts(step, done);
        ended = ended || (step.stops && done.verdict != Verdict::Passed);
      } else {
        done.message = step.wanted ? "not run: the plan was ended" : "not asked for";
      }
      result.verdict = Worse(result.verdict, done.verdict);
      result.steps.push_back(std::move(done));
    }
    FinishBackground(result);
    result.took = Since(start);
    result.waited = waited_;
    return result;
  }

 private:
  void Attempts(const Step& step, StepResult& done) {
    const Clock::time_point start = Clock::now();
    const std::size_t exchanges = session_.Exchanges().size();
    do {
      if (done.attempts > 0) std::this_thread::sleep_for(step.retry_wait);
      ++done.attempts;
      Once(step, done);
    } while (done.verdict != Verdict::Passed && done.verdict != Verdict::PlanWrong &&
             done.attempts <= step.retries);
    done.took = Since(start);
    const auto first = session_.Exchanges().begin() + static_cast<std::ptrdiff_t>(exchanges);
    done.exchanges.assign(first, session_.Exchanges().end());
  }

  void Once(const Step& step, StepResult& done) {
    Judgement judgement;
    done.readings.clear();
    done.attachments.clear();
    try {
      for (int i = 0; i < step.repeat && judgement.verdict == Verdict::Passed; ++i)
        judgement = Work(step, done);
      if (!step.picture.empty()) AttachPicture(done, step.picture);
    } catch (const LinkFailure& failure) {
      judgement = {Verdict::NoLink, failure.what()};
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
    if (step.kind == Step::Kind::Wait) std::this_thread::sleep_for(step.wait);
    if (step.kind == Step::Kind::Question) judgement = Question(step);
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
    // The judgement looks at what has just been moved.
    outcome.readings = done.readings;
    return JudgeOutcome(step, outcome);
  }

  Judgement Question(const Step& step) {
    switch (person_.Ask(fmt::format("{}: {}", session_.Port(), step.question), step.time_limit)) {
      case Operator::Reply::Yes:
        return {};
      case Operator::Reply::No:
        return {Verdict::Failed, "the operator says no"};
      case Operator::Reply::Silence:
        break;
    }
    return {Verdict::Failed, "the operator did not answer"};
  }

  Judgement Program(const Step& step, StepResult& done) {
    HostProgram program(step.program);
    if (step.background) {
      background_.push_back({static_cast<std::size_t>(&step - plan_.steps.data()), std::move(program)});
      return {};
    }
    const std::string failure = program.Wait(step.time_limit);
    if (!program.Output().empty()) done.readings = {{"output", program.Output(), program.Output()}};
    if (!failure.empty()) return {Verdict::Failed, failure};
    return {};
  }

  // A program in the background is judged at the end.
  void FinishBackground(PlanResult& result) {
    for (Background& background : background_) {
      const std::string failure = background.program.Wait(plan_.steps[background.step].time_limit);
      if (failure.empty()) continue;
      StepResult& done = result.steps[background.step];
      done.verdict = Verdict::Failed;
      done.message = failure;
      result.verdict = Worse(result.verdict, Verdict::Failed);
    }
  }

  struct Background {
    std::size_t step;
    HostProgram program;
  };

  const Plan& plan_;
  Session& session_;
  Operator& person_;
  std::chrono::microseconds waited_{0};
  std::list<Background> background_;
};

}  // namespace

PlanResult RunPlan(const Plan& plan, Session& session, Operator& person, const StepStarted& started) {
  return Run(plan, session, person).All(started);
}

PlanResult UnstartedPlan(const Plan& plan, const std::string& port, const std::string& failure) {
  PlanResult result{.plan = plan.name, .port = port, .variables = plan.variables};
  result.started = std::time(nullptr);
  result.verdict = Verdict::NoLink;
  for (const Step& step : plan.steps) {
    result.steps.push_back({.name = step.name, .command = CommandText(step), .message = "not run: no link"});
  }
  result.steps.front().verdict = Verdict::NoLink;
  result.steps.front().message = failure;
  return result;
}

}  // namespace station
