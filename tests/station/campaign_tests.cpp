// Fault campaigns: what is tried, what is counted, and one that is broken off.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "station/campaign/coverage.h"
#include "station/campaign/faults.h"
#include "tests/station/scripted_phone.h"

namespace {

using namespace station;

TEST(Campaign, TriesWhatTheGoodRunDidAndNothingThatCannotFail) {
  const std::vector<std::string> journal = {
      R"({"kind": "open", "path": "/etc/start", "flags": "read"})",  // the phone's start
      R"({"kind": "open", "path": "/dev/misc/rtc", "flags": "read"})",
      R"({"kind": "open", "path": "/etc/version", "flags": "read"})",
      R"({"kind": "open", "path": "/dev/mtd/3", "flags": "read write"})",
      R"({"kind": "open", "path": "/tmp/made", "flags": "write create"})",
      R"({"kind": "open", "path": "/tmp/made", "flags": "read"})",
      R"({"kind": "open", "path": "/etc/none", "flags": "read", "line": "open /etc/none -> ENOENT"})",
      R"({"kind": "tool", "path": "/bin/tool"})",
      R"({"kind": "request", "path": "/dev/misc/rtc", "request": 7})",
      R"({"kind": "request", "path": "/dev/misc/rtc", "request": 7})",
      "no JSON"};
  std::string names;
  for (const Fault& fault : FaultsOfJournal(journal, 1)) names += fault.name + "\n";
  EXPECT_EQ(names,
            "open /dev/misc/rtc ENODEV\nmissing /dev/misc/rtc\n"
            "open /etc/version EACCES\nmissing /etc/version\nshort /etc/version\n"
            "open /dev/mtd/3 ENODEV\nmissing /dev/mtd/3\nshort /dev/mtd/3\n"
            "open /tmp/made EACCES\nexec /bin/tool EACCES\nrequest /dev/misc/rtc 0x00000007 EIO\n");
}

TEST(Campaign, CountsWhatEachStepNoticesAndWhatWasNotTried) {
  const PlanResult good{.plan = "Two", .port = "", .variables = {}, .steps = {{.name = "A"}, {.name = "B"}}};
  const TroubledStep a{"A", "FAILED", "wrong"}, b{"B", "FAILED", "wrong"};
  Coverage coverage = MakeCoverage(good,
                                   {{.fault = "both", .noticed = true, .steps = {a, b}},
                                    {.fault = "one", .noticed = true, .steps = {b}},
                                    {.fault = "known hole"},
                                    {.fault = "hole"}},
                                   {{"known *", "seen by eye"}, {"one", "explains nothing"}});
  coverage.untried = 3;
  const auto json = nlohmann::json::parse(CoverageJson(coverage));
  EXPECT_EQ(json["steps"], nlohmann::json::parse(R"([{"name": "A", "noticed": 1, "alone": 0},
                                                     {"name": "B", "noticed": 2, "alone": 1}])"));
  EXPECT_EQ(json["noticed"], 2);
  EXPECT_EQ(json["explained"], 1);
  EXPECT_EQ(json["unnoticed"], 1);
  EXPECT_EQ(json["untried"], 3);
  EXPECT_EQ(json["idle-reasons"], nlohmann::json::parse(R"(["one"])"));
  for (const std::string& text : {CoverageText(coverage), CoveragePage(coverage)})
    EXPECT_NE(text.find("3 faults were not tried"), std::string::npos) << text;
}

// The plan's program ends the tool in the first trial, and lets the second campaign be.
TEST(Campaign, ABrokenOffOneSaysSoAndGoesOnWithTheSamePlanOnly) {
  const std::string folder = TemporaryFolder() + "/broken-off";
  std::filesystem::create_directories(folder);
  const std::string script =
      "cd " + folder + "; mkdir good 2>/dev/null || { mkdir ended 2>/dev/null && kill -INT $PPID; }; true";
  const auto plan = [&](const std::string& more) {
    return TemporaryFile("ending.json", R"({"name": "Ending", "steps": [{"program": ["sh", "-c", ")" +
                                            script + R"("]}, {"command": "memory-card"})" + more + "]}");
  };
  const auto campaign = [&](const std::string& file, std::vector<std::string> options) {
    options.insert(options.begin(), {"--json", "campaign", file, "--report", folder, "--jobs", "1", "--only",
                                     "card *", "--time-limit", "100"});
    return RunTool(options);
  };
  TemporaryFile("ending.unseen", R"({"nothing": "fits no fault"})");
  const ToolResult ended = campaign(plan(""), {});
  EXPECT_EQ(ended.status, 6) << ended.errors;
  const auto first = nlohmann::json::parse(ended.output);
  EXPECT_GE(first["untried"], 2) << ended.output;
  EXPECT_TRUE(first["idle-reasons"].empty()) << "the faults that it may explain were not tried";
  EXPECT_EQ(campaign(plan(R"(, {"command": "ping"})"), {"--resume"}).status, 2);
  const ToolResult whole = campaign(plan(""), {"--resume"});
  EXPECT_EQ(nlohmann::json::parse(whole.output)["untried"], 0) << whole.errors;
  for (const auto& [option, value] : {std::pair("--jobs", "65"), {"--jobs", "0"}, {"--time-limit", "3601"}}) {
    const ToolResult refused = RunTool({"campaign", plan(""), "--only", "card remove", option, value});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.errors.find("is not a number from 1 to "), std::string::npos) << refused.errors;
  }
}

}  // namespace
