#include "station/results/run_recorder.h"

#include <fmt/format.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "station/commands/errors.h"
#include "station/results/running.h"
#include "station/results/schema.h"
#include "station/results/spool.h"

namespace station {

namespace {

// A database that takes longer than this for what is left at a run's end is given up.
constexpr std::chrono::seconds LONGEST_FINISH{30};

// The spooled runs that one run hands in, so that its own steps do not wait long.
constexpr std::size_t MOST_HANDED_IN = 50;

}  // namespace

// What the run's thread and the recording thread share. The recording thread may outlive the run if the
// database never answers; then it stores what the spool has too, which does no harm.
class RunRecorder::Work {
 public:
  Work(const ResultsAddress& address, RunStart start) : address_(address), start_(std::move(start)) {}

  const RunStart& Start() const {
    return start_;
  }

  void Add(StoredStep step) {
    const std::lock_guard lock(mutex_);
    steps_.push_back(std::move(step));
    changed_.notify_all();
  }

  void End(RunEnd end) {
    const std::lock_guard lock(mutex_);
    end_ = std::move(end);
    changed_.notify_all();
  }

  void Leave() {
    const std::lock_guard lock(mutex_);
    left_ = true;
    changed_.notify_all();
  }

  // False if it takes too long.
  bool WaitForStart() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, LONGEST_FINISH, [this] { return begun_; });
  }
  bool WaitForEnd() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, LONGEST_FINISH, [this] { return over_; });
  }

  std::string Problem() const {
    const std::lock_guard lock(mutex_);
    return lost_.empty() ? problem_ : fmt::format("{}; {}", problem_, lost_);
  }
  std::string HandInProblem() const {
    const std::lock_guard lock(mutex_);
    return hand_in_problem_;
  }
  bool IsLost() const {
    const std::lock_guard lock(mutex_);
    return !lost_.empty();
  }

  // The recording thread.
  void Record() {
    for (;;) {
      std::size_t count = 0;
      bool ending = false;
      bool heartbeat = false;
      {
        std::unique_lock lock(mutex_);
        const auto waiting = [this] { return !begun_ || steps_.size() > stored_ || end_ || left_; };
        heartbeat = !changed_.wait_for(lock, HEARTBEAT, waiting);
        count = steps_.size();
        ending = end_.has_value();
        if (left_ && count == stored_ && !ending) break;
      }
      if (heartbeat) {
        Beat();
      } else {
        Keep(count, ending);
      }
      if (ending) break;
      const std::lock_guard lock(mutex_);
      stored_ = count;
      begun_ = true;
      changed_.notify_all();
    }
    // The program may end as soon as it is told. SQLite tidies its files up when the last connection is
    // closed.
    store_.reset();
    connection_.reset();
    spool_.reset();
    const std::lock_guard lock(mutex_);
    begun_ = over_ = true;
    changed_.notify_all();
  }

  // The run's thread, when the recording thread hangs in the database.
  void GiveUp() {
    NoteProblem("the database " + address_.text + " does not answer");
    const std::lock_guard lock(spool_mutex_);
    Spool(steps_.size(), end_.has_value());
  }

 private:
  void Keep(std::size_t count, bool ending) {
    if (!spooling_) {
      try {
        Store(count, ending);
        return;
      } catch (const std::exception& error) {
        NoteProblem(error.what());
      }
      spooling_ = true;
    }
    const std::lock_guard lock(spool_mutex_);
    Spool(count, ending);
  }

  // A server that was started again has ended the connection, so a second one is tried.
  void Store(std::size_t count, bool ending) {
    const bool connected = connection_.has_value();
    try {
      StoreOnce(count, ending);
    } catch (const ResultsError&) {
      connection_.reset();
      store_.reset();
      if (!connected || address_.kind == ResultsAddress::Kind::File) throw;
      stored_in_database_ = 0;
      StoreOnce(count, ending);
    }
  }

  void StoreOnce(std::size_t count, bool ending) {
    const bool first = !connection_;
    if (first) {
      connection_.emplace(OpenResults(address_));
      store_.emplace(*connection_);
    }
    {
      Transaction transaction(*connection_);
      if (first) keys_ = store_->Start(start_);
      StoreSteps(count);
      if (ending) store_->End(keys_, *end_);
      transaction.Commit();
    }
    stored_in_database_ = count;
    if (!first) return;
    // The run itself is safe; these may fail.
    try {
      MarkInterrupted(*connection_);
      HandIn(*store_, *connection_, MOST_HANDED_IN);
    } catch (const std::exception& error) {
      const std::lock_guard lock(mutex_);
      hand_in_problem_ = error.what();
    }
  }

  // One that comes again has to be in another statement than the first.
  void StoreSteps(std::size_t count) {
    std::vector<StoredStep> steps;
    for (std::size_t i = stored_in_database_; i < count; ++i) {
      const StoredStep& step = StepAt(i);
      if (std::ranges::find(steps, step.number, &StoredStep::number) != steps.end()) {
        store_->Steps(keys_, steps);
        steps.clear();
      }
      steps.push_back(step);
    }
    store_->Steps(keys_, steps);
  }

  // What a full disk does not take is tried again with the next step and at the end.
  void Spool(std::size_t count, bool ending) {
    std::string failure;
    try {
      if (!spool_) spool_ = std::make_unique<SpoolFile>(address_.SpoolFolder(), start_);
      for (; spooled_ < count; ++spooled_) spool_->Add(StepAt(spooled_));
      if (ending) spool_->Add(*end_);
    } catch (const std::exception& error) {
      failure = error.what();
    }
    const std::lock_guard lock(mutex_);
    lost_ = failure;
  }

  void Beat() {
    if (!connection_ || spooling_) return;
    try {
      connection_->Run(fmt::format("UPDATE runs SET heard = {} WHERE id = ?", connection_->Now()),
                       {keys_.run});
    } catch (const ResultsError&) {
      // The next step meets the same and deals with it.
    }
  }

  const StoredStep& StepAt(std::size_t index) {
    const std::lock_guard lock(mutex_);
    return steps_[index];  // a deque's elements stay where they are
  }

  void NoteProblem(const std::string& text) {
    const std::lock_guard lock(mutex_);
    problem_ = text;
  }

  const ResultsAddress address_;
  const RunStart start_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<StoredStep> steps_;
  std::optional<RunEnd> end_;
  std::size_t stored_ = 0;
  bool begun_ = false;
  bool left_ = false;
  bool over_ = false;
  std::string problem_;
  std::string hand_in_problem_;
  std::string lost_;  // why the spool does not have all; empty if nothing is lost

  // The recording thread's own.
  std::optional<Connection> connection_;
  std::optional<RunStore> store_;
  RunStore::Keys keys_;
  std::size_t stored_in_database_ = 0;
  bool spooling_ = false;

  std::mutex spool_mutex_;
  std::unique_ptr<SpoolFile> spool_;
  std::size_t spooled_ = 0;
};

RunRecorder::RunRecorder(const ResultsAddress& address, RunStart start) {
  if (start.process.empty()) start.process = ThisProcess();
  work_ = std::make_shared<Work>(address, std::move(start));
  std::thread([work = work_] { work->Record(); }).detach();
  work_->WaitForStart();
}

RunRecorder::~RunRecorder() {
  work_->Leave();
  work_->WaitForEnd();
}

const std::string& RunRecorder::RunId() const {
  return work_->Start().uuid;
}

void RunRecorder::Add(StoredStep step) {
  work_->Add(std::move(step));
}

void RunRecorder::Finish(RunEnd end) {
  work_->End(std::move(end));
  if (!work_->WaitForEnd()) work_->GiveUp();
}

std::string RunRecorder::Problem() const {
  return work_->Problem();
}

std::string RunRecorder::HandInProblem() const {
  return work_->HandInProblem();
}

bool RunRecorder::IsLost() const {
  return work_->IsLost();
}

}  // namespace station
