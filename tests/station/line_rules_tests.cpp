// What a line decides by itself: what a scan is, how long a phone still takes, what a verdict means.
#include <gtest/gtest.h>

#include "station/line/line.h"
#include "station/line/results_store.h"
#include "station/line/route_check.h"
#include "station/line/verdict_card.h"
#include "station/results/record.h"
#include "station/results/schema.h"
#include "tests/station/scripted_phone.h"

namespace {

using namespace std::chrono_literals;
using namespace station;
using nlohmann::ordered_json;

TEST(LineRules, ScansAndSlotNamesHaveBounds) {
  const std::vector<ScanTarget> one = {{"A", "SLOT-A"}}, two = {{"A", "SLOT-A"}, {"B", "SLOT-B"}};
  const struct {
    std::string typed;
    const std::vector<ScanTarget>& slots;
    const char* chosen;
    std::string slot;  // empty if it is refused
    std::string value;
  } cases[] = {{" \tSN 1\r\n", one, "", "A", "SN 1"},
               {"SN1", two, "", "", ""},
               {"SN1", two, "B", "B", "SN1"},
               {"SN1", two, "C", "", ""},
               {"SLOT-A", two, "B", "A", ""},
               {" \r\n", one, "", "", ""},
               {std::string(200, 'x'), one, "", "A", std::string(200, 'x')},
               {std::string(201, 'x'), one, "", "", ""},
               {"a\x1F"
                "b",
                one, "", "", ""},
               {"a\x7F"
                "b",
                one, "", "", ""}};
  for (const auto& tried : cases) {
    const station::Scan scan = ParseScan(tried.typed, tried.slots, tried.chosen);
    EXPECT_EQ(scan.slot, tried.slot) << tried.typed;
    EXPECT_EQ(tried.slot.empty() ? "" : scan.text, tried.value) << tried.typed;
    EXPECT_EQ(scan.meaning == station::Scan::Meaning::Refused, tried.slot.empty()) << tried.typed;
  }
  ResultsStore store(ParseResultsAddress(TemporaryFolder() + "/names.db"));
  const auto refusal = [&store](const std::vector<SlotOrder>& slots) -> std::string {
    try {
      LineOrder order;
      order.slots = slots;
      Line(order, store, {});
    } catch (const UsageError& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(refusal({{std::string(24, 'A'), "/dev/a", "1"}, {"b-_9", "/dev/b", "2"}}), "");
  for (const std::string& name : {std::string(25, 'A'), std::string(), std::string("A/B")})
    EXPECT_TRUE(Holds(refusal({{name, "/dev/a", "1"}}), "is no slot's name")) << name;
  EXPECT_TRUE(Holds(refusal({{"A", "/dev/a", "1"}, {"A", "/dev/b", "2"}}), "the name A is given"));
  EXPECT_TRUE(Holds(refusal({{"A", "/dev/a", "1"}, {"B", "/dev/a", "2"}}), "the port /dev/a is given"));
  EXPECT_TRUE(Holds(refusal({{"A", "/dev/a", "1"}, {"B", "/dev/b", "1"}}), "the barcode 1 is given"));
}

TEST(LineRules, TheTimeLeftIsMadeOfTheMiddleOfTheNewestPassedTimes) {
  Plan plan;
  plan.steps.resize(4);
  plan.steps[2].wanted = false;
  StepTimes times;
  EXPECT_FALSE(times.Left(plan, 0, 0s));
  for (int seconds = 1; seconds <= 12; ++seconds) times.Add(0, std::chrono::seconds(seconds));
  times.Add(1, 30s);
  times.Add(2, 100s);
  std::vector<StepResult> results(4);
  results[0] = {.name = "", .verdict = Verdict::Failed, .attempts = 1, .took = 1000s};
  results[3] = {.name = "", .verdict = Verdict::Passed, .attempts = 1, .took = 5s};
  times.Add(results);
  const struct {
    std::size_t running;
    std::chrono::seconds elapsed, left;
  } cases[] = {{0, 0s, 43s}, {0, 3s, 40s}, {0, 100s, 35s}, {1, 10s, 25s}, {2, 1s, 5s}, {3, 9s, 0s}};
  for (const auto& [running, elapsed, left] : cases)
    EXPECT_EQ(times.Left(plan, running, elapsed), std::optional<std::chrono::microseconds>(left)) << running;
}

// Only a phone that has passed passes, on the card and on its way; the last run of each stored kind decides.
TEST(LineRules, EachVerdictHasItsWordItsColourAndItsWay) {
  const LineRules rules{.requires_plans = {"Board", "Box"}};
  const struct {
    Verdict verdict;
    const char* word;
    const char* kind;
    const char* ended;
  } cases[] = {{Verdict::Passed, "PASS", "pass", ""},
               {Verdict::Failed, "FAIL", "fail", "It failed there"},
               {Verdict::NoLink, "NO PHONE", "fail", "It did not finish there"},
               {Verdict::Aborted, "ABORTED", "other", "It was aborted there"},
               {Verdict::Incomplete, "INCOMPLETE", "other", "It did not finish there"},
               {Verdict::OutputLost, "OUTPUT LOST", "other", "It did not finish there"},
               {Verdict::PlanWrong, "PLAN ERROR", "other", "It did not finish there"},
               {Verdict::Skipped, "PLAN ERROR", "other", "It did not finish there"}};
  for (const auto& [verdict, word, kind, ended] : cases) {
    const ordered_json card = VerdictCard({.id = "1", .verdict = verdict});
    EXPECT_EQ(card["word"], word);
    EXPECT_EQ(card["kind"], kind) << word;
    const auto past = [verdict = verdict](const std::string&, const std::string& plan) {
      return plan == "Box" ? std::optional(PastRun{verdict, 0, "LINE3"}) : PastRun{Verdict::Passed, 0, ""};
    };
    const std::string refusal = CheckRoute(rules, "SN1", past);
    EXPECT_EQ(refusal.empty(), verdict == Verdict::Passed) << refusal;
    EXPECT_EQ(HasPassed("Box", "SN1", past), verdict == Verdict::Passed) << word;
    EXPECT_TRUE(Holds(refusal, *ended == 0 ? "" : std::string(ended) + " at station LINE3")) << refusal;
  }
  const auto never = [](const std::string&, const std::string&) { return std::optional<PastRun>(); };
  EXPECT_TRUE(Holds(CheckRoute(rules, "SN1", never), "has never passed “Board”"));
  const auto away = [](const std::string&, const std::string&) -> std::optional<PastRun> {
    throw StoreAway("");
  };
  EXPECT_TRUE(Holds(CheckRoute(rules, "SN1", away), "cannot be reached"));
  EXPECT_EQ(CheckRoute({.requires_plans = {"Board"}, .runs_without_results = true}, "SN1", away), "");
  EXPECT_FALSE(HasPassed("Box", "SN1", away));

  // What a stored run counts as; one that says nothing about the phone leaves the run before it.
  const ResultsAddress address = ParseResultsAddress(TemporaryFolder() + "/past.db");
  Connection connection = OpenResults(address);
  RunStore store(connection);
  store.Start({.uuid = "1", .plan = "Board", .serial = "SN1", .started = 1000});
  connection.Run("UPDATE runs SET verdict = 2");
  store.Start({.uuid = "2", .plan = "Board", .serial = "SN1", .started = 2000});
  const std::pair<StoredVerdict, Verdict> kinds[] = {
      {StoredVerdict::Passed, Verdict::Passed},      {StoredVerdict::Incomplete, Verdict::Incomplete},
      {StoredVerdict::Failed, Verdict::Failed},      {StoredVerdict::NoLink, Verdict::NoLink},
      {StoredVerdict::Aborted, Verdict::Incomplete}, {StoredVerdict::Interrupted, Verdict::Incomplete},
      {StoredVerdict::Running, Verdict::Incomplete}, {StoredVerdict::OutputLost, Verdict::Incomplete}};
  for (const auto& [stored, verdict] : kinds) {
    connection.Run("UPDATE runs SET verdict = ? WHERE uuid = '2'", {static_cast<std::int64_t>(stored)});
    EXPECT_EQ(NewestRunIn(address, "SN1", "Board")->verdict, verdict) << StoredVerdictWord(stored);
  }
}

}  // namespace
