// The store of runs by direct call: what is handed in, which runs go on, and what figures are made of.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <thread>

#include "station/line/results_store.h"
#include "station/results/history.h"
#include "station/results/run_recorder.h"
#include "station/results/running.h"
#include "station/results/schema.h"
#include "station/results/spool.h"
#include "station/results/yield.h"
#include "tests/station/scripted_phone.h"
#include "tests/station/syncs.h"

namespace {

namespace fs = std::filesystem;
using namespace station;

class RunStoreTest : public testing::Test {
 protected:
  std::int64_t Number(const std::string& query) {
    return connection_.Ask(query, "i").at(0).at(0).number;
  }

  const ResultsAddress address_ = ParseResultsAddress(
      TemporaryFolder() + "/" + testing::UnitTest::GetInstance()->current_test_info()->name() + ".db");
  Connection connection_ = OpenResults(address_);
  RunStore store_{connection_};
};

TEST_F(RunStoreTest, ASpooledRunIsOnTheDiskAndIsHandedInWhenItHasEndedTheOldestFirst) {
  const fs::path folder = address_.SpoolFolder();
  std::optional<SpoolFile> going_on;
  going_on.emplace(folder, RunStart{.uuid = "3-run", .plan = "Line"});
  EXPECT_EQ(TakeSyncs(), "3-run.jsonl " + folder.filename().string() + " ");
  for (const char* uuid : {"2-run", "0-run", "1-run"}) SpoolFile(folder, {.uuid = uuid, .plan = "Line"});
  TakeSyncs();
  going_on->Add(StoredStep{.number = 1, .name = "A"});
  going_on->Add(RunEnd{});
  EXPECT_EQ(TakeSyncs(), "3-run.jsonl 3-run.jsonl ");
  EXPECT_EQ(HandIn(store_, connection_, 2), 2u);
  EXPECT_EQ(SpooledRuns(folder), 2u);
  EXPECT_EQ(HandIn(store_, connection_), 1u) << "one goes on";
  going_on.reset();
  EXPECT_EQ(HandIn(store_, connection_), 1u);
  EXPECT_TRUE(fs::is_empty(folder));
  std::string order;
  for (const SqlRow& row : connection_.Ask("SELECT uuid FROM runs ORDER BY id", "t"))
    order += row[0].text + " ";
  EXPECT_EQ(order, "0-run 1-run 2-run 3-run ");
}

TEST_F(RunStoreTest, ARunIsHeardOfWhileItsPlanWaits) {
  const RunRecorder recorder(address_, {.uuid = NewRunId(), .plan = "Line", .started = MillisecondsNow()});
  const std::int64_t first = Number("SELECT heard FROM runs");
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (Number("SELECT heard FROM runs") == first && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_GT(Number("SELECT heard FROM runs"), first);
}

// What ThisProcess() says in a process that has ended and that its parent has not waited for yet.
class Zombie {
 public:
  Zombie() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    process_ = fork();
    if (process_ == 0) {
      const std::string text = ThisProcess();
      _exit(write(ends[1], text.data(), text.size()) > 0 ? 0 : 1);
    }
    siginfo_t ended;
    waitid(P_PID, static_cast<id_t>(process_), &ended, WEXITED | WNOWAIT);
    char room[512];
    text_.assign(room, static_cast<std::size_t>(read(ends[0], room, sizeof room)));
    close(ends[0]);
    close(ends[1]);
  }
  Zombie(const Zombie&) = delete;
  Zombie& operator=(const Zombie&) = delete;
  ~Zombie() {
    waitpid(process_, nullptr, 0);
  }

  const std::string& Text() const {
    return text_;
  }

 private:
  pid_t process_ = -1;
  std::string text_;
};

TEST_F(RunStoreTest, ARunGoesOnAsLongAsItsProcessLivesOrIsHeardOf) {
  const Zombie zombie;
  const std::string own = ThisProcess();
  const struct {
    std::string process;
    int silent;  // seconds
    bool goes_on;
  } cases[] = {{own, 3600, true},
               {zombie.Text(), 0, false},
               {own + "0", 0, false},  // another that had the same number
               {"elsewhere/1/1", 100, true},
               {"elsewhere/1/1", 130, false}};
  for (const auto& [process, silent, goes_on] : cases) {
    SCOPED_TRACE(process);
    const std::int64_t run =
        store_.Start({.uuid = NewRunId(), .plan = "Line", .process = process, .started = MillisecondsNow()})
            .run;
    connection_.Run("UPDATE runs SET heard = heard - ? WHERE id = ?", {silent * 1000, run});
    MarkInterrupted(connection_);
    EXPECT_EQ(Number("SELECT verdict FROM runs WHERE id = " + std::to_string(run)), goes_on ? 8 : 7);
    EXPECT_EQ(Number("SELECT count(*) FROM runs WHERE verdict = 7 AND ended <> heard"), 0);
  }
}

// Runs of one plan, of which each has a step with a value.
struct Made {
  const char* phone;
  StoredVerdict verdict;
  double value;
  std::int64_t microseconds;
  const char* plan_sha256 = "1";
  StoredVerdict step = verdict;
};

void Make(RunStore& store, const std::vector<Made>& runs) {
  std::int64_t started = 1'000'000;
  for (const Made& made : runs) {
    const auto keys = store.Start({.uuid = NewRunId(),
                                   .plan = "Line",
                                   .plan_sha256 = made.plan_sha256,
                                   .serial = made.phone,
                                   .started = started += 1000});
    const StoredValue value{.reading = "signal",
                            .value = made.value,
                            .minimum = 0,
                            .maximum = 100,
                            .verdict = StoredVerdict::Passed};
    const StoredStep step{.number = 1,
                          .name = "Radio",
                          .verdict = made.step,
                          .attempts = 1,
                          .microseconds = made.microseconds,
                          .values = {value}};
    store.Steps(keys, {&step, 1});
    store.End(keys, {.verdict = made.verdict, .ended = started + 1});
  }
}

TEST_F(RunStoreTest, FiguresAreOfRunsThatSayWhetherThePhoneIsGood) {
  using enum StoredVerdict;
  Make(store_, {{"A", Aborted, 50, 9000},
                {"A", Passed, 10, 1000},
                {"B", Failed, 30, 9000},
                {"B", Passed, 20, 3000},
                {"C", Passed, 50, 2000, "2"},
                {"D", Passed, 2, 2000, "2"},
                {"E", Interrupted, 99, 9000},
                {"F", Aborted, 99, 9000, "1", Failed}});
  const std::vector<YieldRow> yields = Yields(connection_, {}, YieldBy::Plan);
  ASSERT_EQ(yields.size(), 1u);
  EXPECT_EQ(yields[0].runs, 5);
  EXPECT_EQ(yields[0].without_verdict, 3);
  EXPECT_EQ(yields[0].first_tested, 4) << "an aborted run is no first test";
  EXPECT_EQ(yields[0].first_passed, 3);
  EXPECT_EQ(yields[0].passed, 4);
  const std::vector<FailingStep> failing = FailingSteps(connection_, {});
  ASSERT_EQ(failing.size(), 1u);
  EXPECT_EQ(failing[0].runs, 1);
  EXPECT_EQ(UsualMicroseconds(connection_, "Line").at(1), 2000) << "of those that passed";
  EXPECT_EQ(ResultsStore(address_).StepTimes("Line").at(0), std::chrono::milliseconds(2))
      << "the first is 0 here";
  // Of a plan that was changed, too: 10, 30, 20 and 50, 2.
  const std::vector<MeasurementStatistics> all = Statistics(connection_, {});
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0].count, 5);
  EXPECT_NEAR(all[0].mean, 22.4, 1e-9);
  EXPECT_NEAR(*Spread(all[0]), std::sqrt(1395.2 / 4), 1e-9);
  EXPECT_EQ(all[0].lowest, 2);
  EXPECT_EQ(all[0].highest, 50);
  EXPECT_EQ(Trend(connection_, {}, all[0].definitions).size(), 5u);
}

TEST_F(RunStoreTest, StepsOfOneNameAreComparedInTheirOrder) {
  const auto make = [this](const std::vector<std::pair<const char*, const char*>>& steps) {
    const std::string uuid = NewRunId();
    const auto keys = store_.Start({.uuid = uuid, .plan = "Line"});
    int number = 0;
    for (const auto& [name, text] : steps) {
      const StoredStep step{
          .number = ++number, .name = name, .values = {{.reading = "output", .text = text}}};
      store_.Steps(keys, {&step, 1});
    }
    return *FindRun(connection_, uuid);
  };
  const RunRow before = make({{"Same", "a"}, {"Same", "b"}, {"Gone", "c"}});
  const RunRow after = make({{"New", "d"}, {"Same", "a"}, {"Same", "B"}});
  std::string found;
  for (const Difference& one : CompareRuns(connection_, before, after)) {
    if (one.reading == "output") found += one.step + " " + one.before + "-" + one.after + ", ";
  }
  EXPECT_EQ(found, "New -d, Same b-B, Gone c-, ");
}

}  // namespace
