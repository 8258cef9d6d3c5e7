#include "station/line/slot.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "station/commands/clean_text.h"
#include "station/line/route_check.h"
#include "station/line/verdict_card.h"
#include "station/plan/variable_checks.h"
#include "station/results/record.h"

namespace station {

namespace {

using nlohmann::ordered_json;

constexpr const char* SERIAL = "serial number";
constexpr const char* RETEST_REASON = "reason for another test";

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

// On the page, a step is a small square.
char Mark(Verdict verdict) {
  if (verdict == Verdict::Passed) return 'p';
  return verdict == Verdict::Skipped ? '-' : 'f';
}

double Seconds(std::chrono::microseconds time) {
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

std::string NameOr(const std::string& name, const char* otherwise) {
  return name.empty() ? otherwise : name;
}

// Empty if the value is one that the field can have.
std::string WrongLabel(const std::string& field, const nlohmann::json& checks, const std::string& value) {
  const std::string fault = VariableFault(checks, value);
  if (fault.empty()) return "";
  return fmt::format("“{}” is no {}: {}. Scan the right label.", CleanText(value), field, fault);
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
      person_(changed_) {
  NewPhone();
}

LineSlot::~LineSlot() {
  thread_.request_stop();
}

void LineSlot::NewPhone() {
  values_.clear();
  verdict_ = nullptr;
  marks_.clear();
  fields_ = {{SERIAL, "on the phone's label", SerialChecks()}};
  const std::map<std::string, std::string> set = settings_.All();
  for (const PlanVariable& variable : line_.plan.variables) {
    const bool given = set.contains(variable.name) || variable.name == line_.plan.line.serial;
    if (variable.needed && !given) fields_.push_back({variable.name, variable.help, variable.declaration});
  }
  state_ = State::Idle;
}

// The variable that gets the serial number may have checks too.
nlohmann::json LineSlot::SerialChecks() const {
  nlohmann::json checks = nlohmann::json::object();
  for (const PlanVariable& variable : line_.plan.variables) {
    if (variable.name == line_.plan.line.serial) checks = variable.declaration;
  }
  if (!line_.plan.line.serial_pattern.empty()) checks["pattern"] = line_.plan.line.serial_pattern;
  return checks;
}

const LineSlot::Field* LineSlot::NextField() const {
  const auto next =
      std::ranges::find_if(fields_, [this](const Field& field) { return !values_.contains(field.name); });
  return next == fields_.end() ? nullptr : &*next;
}

std::string LineSlot::Enter(const std::string& value, const std::string& who) {
  std::string refusal;
  {
    const std::lock_guard lock(mutex_);
    if (state_ == State::Finished) {
      // The verdict stays until there is really another phone.
      const std::string wrong = WrongLabel(SERIAL, SerialChecks(), value);
      if (!wrong.empty()) return wrong;
      NewPhone();
    }
    if (state_ != State::Idle && state_ != State::Ready) {
      return fmt::format("Slot {} is testing {}. Wait for its end, or abort it.", order_.name,
                         values_.at(SERIAL));
    }
    const Field& field = *NextField();
    refusal = WrongLabel(field.name, field.checks, value);
    if (refusal.empty()) {
      values_[field.name] = value;
      state_ = State::Ready;
      if (NextField() == nullptr) Start(who);
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
    values_.erase(RETEST_REASON);
    std::erase_if(fields_, [](const Field& field) { return field.name == RETEST_REASON; });
    Start(who);
  }
  changed_();
  return "";
}

// Called with the lock. The thread before it has done its work.
void LineSlot::Start(const std::string& who) {
  state_ = State::Checking;
  verdict_ = nullptr;
  marks_.clear();
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
    serial = values_.at(SERIAL);
    asked = values_.contains(RETEST_REASON);
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
  fields_.push_back({RETEST_REASON, "this phone has passed this plan before", nlohmann::json::object()});
  state_ = State::Ready;
  return false;
}

void LineSlot::Refuse(const std::string& sentence) {
  const std::lock_guard lock(mutex_);
  run_ = nullptr;
  verdict_ = RefusalCard(sentence);
  state_ = State::Finished;
}

std::map<std::string, std::string> LineSlot::PlanVariables() const {
  std::map<std::string, std::string> variables = settings_.All();
  for (const auto& [name, value] : values_) {
    if (name == SERIAL || name == RETEST_REASON) continue;
    variables[name] = value;
  }
  if (!line_.plan.line.serial.empty()) variables[line_.plan.line.serial] = values_.at(SERIAL);
  return variables;
}

void LineSlot::RunPhone(const std::stop_token& stop) {
  LineRunStart beginning;
  beginning.id = NewRunId();
  beginning.port = order_.port;
  beginning.slot = order_.name;
  std::map<std::string, std::string> variables;
  {
    const std::lock_guard lock(mutex_);
    variables = PlanVariables();
    beginning.serial = values_.at(SERIAL);
    beginning.origin = {line_.station, operator_name_, line_.tool_version};
    if (values_.contains(RETEST_REASON)) beginning.retest_reason = values_.at(RETEST_REASON);
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
    run_ = run;
    step_ = 0;
    started_ = step_started_ = Clock::now();
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
  run_ = nullptr;
  picture_.reset();
  verdict_ = VerdictCard(stored);
  verdict_["seconds"] = Seconds(result.took);
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
    step_ = step;
    step_started_ = Clock::now();
    marks_.resize(step, '-');
    const Step& started = run_->GetPlan().steps[step];
    if (started.kind == Step::Kind::Question && !started.picture.empty())
      picture_ = PictureIn(started.picture);
  }
  changed_();
}

void LineSlot::NoteFinished(std::size_t step, const StepResult& result) {
  const std::lock_guard lock(mutex_);
  marks_.resize(std::max(marks_.size(), step + 1), '-');
  marks_[step] = Mark(result.verdict);
  const bool pictured = result.attempts > 0 && !result.attachments.empty();
  if (pictured) picture_ = result.attachments.back();
  if (result.attempts > 0 && !pictured) picture_.reset();
}

LineSlot::State LineSlot::GetState() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

std::optional<Attachment> LineSlot::QuestionPicture() const {
  const std::lock_guard lock(mutex_);
  return picture_;
}

ordered_json LineSlot::View() const {
  const std::lock_guard lock(mutex_);
  ordered_json values = ordered_json::array();
  for (const Field& field : fields_) {
    if (!values_.contains(field.name)) continue;
    values.push_back({{"name", field.name}, {"value", CleanText(values_.at(field.name))}});
  }
  const Field* next = NextField();
  const bool takes = state_ == State::Idle || state_ == State::Ready;
  ordered_json view = {{"name", order_.name}, {"barcode", order_.barcode}, {"state", StateWord(state_)}};
  view["values"] = std::move(values);
  view["wants"] =
      takes && next != nullptr ? ordered_json{{"name", next->name}, {"help", next->help}} : ordered_json();
  view["run"] = run_ != nullptr ? RunView() : ordered_json();
  view["marks"] = marks_;
  view["verdict"] = verdict_;
  return view;
}

// Called with the lock, while a plan runs.
ordered_json LineSlot::RunView() const {
  const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - step_started_);
  const Plan& plan = run_->GetPlan();
  const auto left = times_.Left(plan, step_, elapsed);
  ordered_json run = {
      {"step", step_ + 1},
      {"steps", plan.steps.size()},
      {"name", CleanText(plan.steps[step_].name)},
      {"seconds", Seconds(std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - started_))},
      {"left", left ? ordered_json(Seconds(*left)) : ordered_json()}};
  const std::optional<OpenQuestion> question = person_.Open();
  run["question"] = question ? ordered_json{{"number", question->number},
                                            {"text", CleanText(question->text)},
                                            {"picture", picture_.has_value()}}
                             : ordered_json();
  return run;
}

}  // namespace station
