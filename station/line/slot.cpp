#include "station/line/slot.h"

#include <fmt/format.h>

#include <utility>

#include "station/commands/clean_text.h"
#include "station/line/route_check.h"
#include "station/line/verdict_card.h"
#include "station/results/record.h"

namespace station {

namespace {

using nlohmann::ordered_json;

const char* StateWord(LineSlot::State state) {
  switch (state) {
    case LineSlot::State::Idle:
      return "idle";
    case LineSlot::State::Ready:
      return "ready";
    case LineSlot::State::Checking:
      return "checking";
    case LineSlot::State::Running:
      return "running";
    case LineSlot::State::Aborting:
      return "aborting";
    case LineSlot::State::Finished:
      return "finished";
  }
  return "";
}

std::string NameOr(const std::string& name, const char* otherwise) {
  return name.empty() ? otherwise : name;
}

}  // namespace

LineSlot::LineSlot(SlotOrder order, const LineOrder& line, const LineSettings& settings, LineStore& store,
                   StepTimes& times, std::function<void()> changed)
    : order_(std::move(order)),
      line_(line),
      settings_(settings),
      store_(store),
      times_(times),
      changed_(std::move(changed)),
      person_(changed_),
      phone_(line_.plan) {
  NewPhone();
}

LineSlot::~LineSlot() {
  thread_.request_stop();
}

void LineSlot::NewPhone() {
  phone_.Renew(settings_.All());
  progress_.Clear();
  verdict_ = nullptr;
  state_ = State::Idle;
}

std::string LineSlot::Enter(const std::string& value, const std::string& who) {
  std::string refusal;
  {
    const std::lock_guard lock(mutex_);
    if (state_ == State::Finished) {
      // The verdict stays until there is really another phone.
      const std::string wrong = phone_.SerialFault(value);
      if (!wrong.empty()) return wrong;
      NewPhone();
    }
    if (state_ != State::Idle && state_ != State::Ready) {
      return fmt::format("Slot {} is testing {}. Wait for its end, or abort it.", order_.name,
                         CleanText(phone_.Serial()));
    }
    refusal = phone_.NextFault(value);
    if (refusal.empty()) {
      phone_.EnterNext(value);
      state_ = State::Ready;
      if (phone_.Next() == nullptr) Start(who);
    }
  }
  changed_();
  return refusal;
}

void LineSlot::Renew() {
  {
    const std::lock_guard lock(mutex_);
    if (state_ == State::Idle) NewPhone();
  }
  changed_();
}

std::string LineSlot::Clear() {
  {
    const std::lock_guard lock(mutex_);
    if (state_ != State::Idle && state_ != State::Ready && state_ != State::Finished) {
      return fmt::format("Slot {} is testing a phone.", order_.name);
    }
    NewPhone();
  }
  changed_();
  return "";
}

std::string LineSlot::AnswerQuestion(std::uint64_t question, Answer::Reply reply, const std::string& who) {
  if (person_.Reply(question, reply, NameOr(who, "operator at the page"))) {
    changed_();
    return "";
  }
  return "This question is no longer open.";
}

std::string LineSlot::Abort(const std::string& who) {
  {
    const std::lock_guard lock(mutex_);
    if (state_ != State::Running && state_ != State::Aborting)
      return fmt::format("Slot {} tests no phone.", order_.name);
    if (state_ == State::Running) aborted_by_ = NameOr(who, "operator at the page");
    state_ = State::Aborting;
    thread_.request_stop();
  }
  changed_();
  return "";
}

std::string LineSlot::Retest(const std::string& who) {
  {
    const std::lock_guard lock(mutex_);
    if (state_ != State::Finished) return fmt::format("Slot {} has no tested phone.", order_.name);
    phone_.ForgetRetestReason();
    Start(who);
  }
  changed_();
  return "";
}

// Called with the lock. The thread before it has done its work.
void LineSlot::Start(const std::string& who) {
  state_ = State::Checking;
  verdict_ = nullptr;
  progress_.Clear();
  operator_name_ = who;
  aborted_by_.clear();
  thread_ = std::jthread([this](const std::stop_token& stop) { Work(stop); });
}

void LineSlot::Work(const std::stop_token& stop) {
  try {
    if (MayStart()) RunPhone(stop);
  } catch (const std::exception& error) {
    Refuse(error.what());
  }
  changed_();
}

bool LineSlot::MayStart() {
  const LineRules& rules = line_.plan.line;
  std::string serial;
  bool asked = false;
  {
    const std::lock_guard lock(mutex_);
    serial = phone_.Serial();
    asked = !phone_.RetestReason().empty();
  }
  const auto past = [this](const std::string& phone, const std::string& plan) {
    return store_.NewestRun(phone, plan);
  };
  const std::string refusal = CheckRoute(rules, serial, past);
  if (!refusal.empty()) {
    Refuse(refusal);
    return false;
  }
  if (!rules.asks_retest_reason || asked || !HasPassed(line_.plan.name, serial, past)) return true;
  const std::lock_guard lock(mutex_);
  phone_.AskRetestReason();
  state_ = State::Ready;
  return false;
}

void LineSlot::Refuse(const std::string& sentence) {
  const std::lock_guard lock(mutex_);
  progress_.End();
  verdict_ = RefusalCard(sentence);
  state_ = State::Finished;
}

void LineSlot::RunPhone(const std::stop_token& stop) {
  LineRunStart beginning;
  beginning.id = NewRunId();
  beginning.port = order_.port;
  beginning.slot = order_.name;
  std::map<std::string, std::string> variables;
  {
    const std::lock_guard lock(mutex_);
    variables = phone_.PlanVariables(settings_.All());
    beginning.serial = phone_.Serial();
    beginning.origin = {line_.station, operator_name_, line_.tool_version};
    beginning.retest_reason = phone_.RetestReason();
  }
  if (line_.insert) line_.insert(order_.name, beginning.serial);
  const std::unique_ptr<PlanNumbers> numbers =
      store_.Draw(beginning, line_.plan.file, variables, line_.reserve);
  variables.insert(numbers->Values().begin(), numbers->Values().end());
  const auto run = std::make_shared<const PhoneRun>(line_.plan.file, variables, order_.port);
  beginning.plan = &run->GetPlan();
  // Before the plan: its last step may switch the phone off.
  const auto executable = line_.executable ? line_.executable(order_.port) : std::nullopt;
  const std::unique_ptr<LineRunWriter> writer = store_.Begin(beginning);
  {
    const std::lock_guard lock(mutex_);
    progress_.Begin(run);
    state_ = State::Running;
  }
  changed_();
  numbers->Begin();
  PlanResult result =
      run->Run({.session = {.answer_time = line_.answer_time}}, person_,
               {.started = [this](std::size_t step, const std::string&) { NoteStarted(step); },
                .finished =
                    [&](std::size_t step, const StepResult& done) {
                      writer->Step(step, done.verdict == Verdict::Aborted ? WithAborter(done) : done);
                      NoteFinished(step, done);
                    },
                .stop = stop});
  numbers->Settle(run->GetPlan(), result);
  times_.Add(result.steps);
  result.origin = beginning.origin;
  result.slot = order_.name;
  result.executable = executable;
  const LineRun stored = writer->End(result);
  const std::lock_guard lock(mutex_);
  progress_.End();
  verdict_ = VerdictCard(stored);
  verdict_["seconds"] = std::chrono::duration<double>(result.took).count();
  state_ = State::Finished;
}

// The record and the card say who it was.
StepResult LineSlot::WithAborter(StepResult result) const {
  const std::lock_guard lock(mutex_);
  if (!aborted_by_.empty()) result.message = "aborted by " + aborted_by_;
  return result;
}

void LineSlot::NoteStarted(std::size_t step) {
  {
    const std::lock_guard lock(mutex_);
    progress_.StepStarted(step);
  }
  changed_();
}

void LineSlot::NoteFinished(std::size_t step, const StepResult& result) {
  const std::lock_guard lock(mutex_);
  progress_.StepFinished(step, result);
}

LineSlot::State LineSlot::GetState() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

std::optional<Attachment> LineSlot::QuestionPicture(std::uint64_t question) const {
  const std::lock_guard lock(mutex_);
  const std::optional<OpenQuestion> open = person_.Open();
  return open && open->number == question ? progress_.Picture() : std::nullopt;
}

ordered_json LineSlot::View() const {
  const std::lock_guard lock(mutex_);
  const bool takes = state_ == State::Idle || state_ == State::Ready;
  return {{"name", order_.name},
          {"barcode", order_.barcode},
          {"state", StateWord(state_)},
          {"values", phone_.EnteredView()},
          {"wants", takes ? phone_.NextView() : ordered_json()},
          {"run", progress_.View(times_, person_.Open())},
          {"marks", progress_.Marks()},
          {"verdict", verdict_}};
}

}  // namespace station
