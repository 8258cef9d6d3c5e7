#include "station/campaign/campaign.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <mutex>
#include <optional>
#include <thread>

#include "posix/whole_output.h"
#include "station/campaign/coverage.h"
#include "station/campaign/state_file.h"
#include "station/commands/clean_text.h"
#include "station/link/interruption.h"
#include "station/tasks/terminal.h"

namespace station {

namespace {

namespace fs = std::filesystem;

// Plans play the tester with phonesim if they have a variable for it.
void SetPhonesim(TrialSetup& setup) {
  constexpr std::size_t LARGEST = 1 << 20;
  const auto plan = nlohmann::json::parse(ReadFile(setup.plan_file, LARGEST), nullptr, false, true);
  if (!plan.is_object() || !plan.contains("variables") || !plan["variables"].contains("phonesim")) return;
  setup.variables.try_emplace("phonesim", setup.phonesim);
}

void CheckGood(const PlanResult& result) {
  if (result.verdict == Verdict::Passed) return;
  for (const StepResult& step : result.steps) {
    if (step.verdict == Verdict::Passed || step.verdict == Verdict::Skipped) continue;
    throw PlanError(
        fmt::format("the plan does not pass on a good phone: step \"{}\": {}", step.name, step.message));
  }
  throw PlanError("the plan does not pass on a good phone: " + VerdictText(result.verdict));
}

std::vector<Fault> FaultsOf(const GoodRun& good, const std::string& only) {
  std::vector<Fault> faults = FaultsOfModels(good.defects);
  const std::vector<Fault> more = FaultsOfJournal(good.journal, good.started_at);
  faults.insert(faults.end(), more.begin(), more.end());
  if (!only.empty())
    std::erase_if(faults, [&](const Fault& fault) { return !FitsPattern(only, fault.name); });
  if (faults.empty()) throw UsageError(fmt::format("no fault fits \"{}\"; --list shows them", only));
  return faults;
}

// Tries the faults on several phones at the same time.
class Workers {
 public:
  Workers(const CampaignOrder& order, const std::vector<Fault>& faults, StateFile* state)
      : order_(order),
        faults_(faults),
        state_(state),
        trials_(faults.size()),
        progress_(isatty(STDERR_FILENO) != 0) {
    if (state == nullptr) return;
    for (const Trial& made : state->Made()) {
      for (std::size_t i = 0; i < faults.size(); ++i) {
        if (faults[i].name == made.fault) trials_[i] = made;
      }
    }
  }

  // The trials that were made, in the faults' order. The first failure of a worker is thrown.
  std::vector<Trial> Work() {
    for (std::size_t i = 0; i < trials_.size(); ++i) {
      if (!trials_[i]) left_.push_back(i);
    }
    std::vector<std::jthread> threads;
    for (unsigned job = 0; job < order_.jobs; ++job) threads.emplace_back([this, job] { WorkOff(job); });
    threads.clear();  // waits for all
    if (failure_) std::rethrow_exception(failure_);
    std::vector<Trial> made;
    for (std::optional<Trial>& trial : trials_) {
      if (trial) made.push_back(std::move(*trial));
    }
    return made;
  }

 private:
  void WorkOff(unsigned job) {
    const std::string name = fmt::format("campaign-{}", job);
    try {
      for (std::size_t at = next_++; at < left_.size() && !failed_ && !Interrupted(); at = next_++) {
        const Fault& fault = faults_[left_[at]];
        Keep(left_[at], TryFault(order_.setup, fault, name));
      }
    } catch (const Aborted&) {
      // The interruption ends every worker.
    } catch (const std::exception&) {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (!failed_.exchange(true)) failure_ = std::current_exception();
    }
  }

  void Keep(std::size_t index, Trial trial) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (state_ != nullptr) state_->Add(trial);
    ++done_;
    if (!trial.noticed) ++unnoticed_;
    progress_.ShowBar(fmt::format("{}/{}, {} unnoticed: {}", done_, left_.size(), unnoticed_, trial.fault),
                      done_, left_.size());
    trials_[index] = std::move(trial);
  }

  const CampaignOrder& order_;
  const std::vector<Fault>& faults_;
  StateFile* state_;
  std::vector<std::optional<Trial>> trials_;
  std::vector<std::size_t> left_;
  std::atomic<std::size_t> next_ = 0;
  std::atomic<bool> failed_ = false;
  std::exception_ptr failure_;
  std::mutex mutex_;
  Progress progress_;
  std::size_t done_ = 0;
  std::size_t unnoticed_ = 0;
};

void WriteText(const std::string& path, const std::string& text) {
  const std::string lost = posix::WriteWholeFile(path, text);
  if (!lost.empty()) throw OutputLost(lost);
}

void ShowFaults(const std::vector<Fault>& faults) {
  for (const Fault& fault : faults) posix::Print("{}\n", CleanText(fault.name));
}

// A slow phone is no fault: the limit leaves room for a machine that is busy with many phones.
std::chrono::milliseconds LimitFrom(const PlanResult& good) {
  return std::chrono::seconds(15) + 3 * std::chrono::ceil<std::chrono::milliseconds>(good.took);
}

}  // namespace

ExitStatus RunCampaign(const CampaignOrder& given) {
  CampaignOrder order = given;
  if (order.resume && order.report_folder.empty()) throw UsageError("--resume needs the --report folder");
  const std::string beside = ReasonsBeside(order.setup.plan_file);
  const bool named = !order.reasons_file.empty();
  const Reasons reasons = ReadReasons(named ? order.reasons_file : beside, named);
  SetPhonesim(order.setup);
  // The phones of this campaign see each other alone, whatever else runs here.
  setenv("PHONESIM_GROUP", fmt::format("campaign-{}", getpid()).c_str(), 1);
  NoteInterruptions();
  try {
    const GoodRun good = RunGoodPhone(order.setup, "campaign-good");
    CheckGood(good.result);
    const std::vector<Fault> faults = FaultsOf(good, order.only);
    if (order.list) {
      ShowFaults(faults);
      return ExitStatus::Passed;
    }
    if (order.setup.time_limit.count() == 0) order.setup.time_limit = LimitFrom(good.result);
    order.setup.plan_sha256 = good.result.plan_sha256;
    std::optional<StateFile> state;
    if (!order.report_folder.empty()) {
      fs::create_directories(order.report_folder);
      state.emplace(order.report_folder + "/campaign.state", good.result.plan_sha256, order.resume);
    }
    std::vector<Trial> trials = Workers(order, faults, state ? &*state : nullptr).Work();
    const std::size_t untried = faults.size() - trials.size();
    Coverage coverage = MakeCoverage(good.result, std::move(trials), reasons);
    coverage.untried = untried;
    if (!order.only.empty() || untried > 0) coverage.idle_reasons.clear();
    if (state) {
      WriteText(order.report_folder + "/campaign.html", CoveragePage(coverage));
      WriteText(order.report_folder + "/campaign.json", CoverageJson(coverage));
    }
    posix::Print("{}", order.json ? CoverageJson(coverage) : CleanText(CoverageText(coverage)));
    if (untried > 0) return ExitStatus::Aborted;
    return coverage.Holes() == 0 ? ExitStatus::Passed : ExitStatus::DeviceFailure;
  } catch (const Aborted&) {
    return ExitStatus::Aborted;
  }
}

}  // namespace station
