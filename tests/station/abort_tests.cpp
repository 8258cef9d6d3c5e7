// A plan that is ended by a signal: what still runs, what is reported, and what is left.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <future>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "station/plan/phone_run.h"
#include "tests/station/scripted_phone.h"

namespace {

const Turn MOTOR = {"2B0000000100000000000000", "00000000"};
constexpr const char* CLEAN_UP = R"({"command": "ping"}, {"command": "motor on", "always": true}]})";

std::string PlanOf(const std::string& steps) {
  return TemporaryFile("plan.json", "{\"steps\": [" + steps + ", " + CLEAN_UP);
}

bool EndsSoon(pid_t process) {
  for (int tries = 0; tries < 1000; ++tries) {
    const std::string state = ReadFile("/proc/" + std::to_string(process) + "/stat");
    if (state.empty() || state.find(") Z ") != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// A program of a plan is a child of the tool, so it can send the tool the signal.
TEST(Abort, EndsWhatRunsThenCleansUpAndReports) {
  const std::string notes = TemporaryFile("notes", "");
  const std::string note = "echo $$ > " + notes + "; echo ${scratch} >> " + notes + "; ";
  const auto program = [](const std::string& script, const std::string& more) {
    return R"({"program": ["sh", "-c", ")" + script + R"("], )" + more + "}";
  };
  const std::string beside = program("kill -TERM $PPID; " + note + "sleep 300", R"("background": true)");
  const struct {
    const char* about;
    std::string steps;
  } cases[] = {
      {"a program", program(note + "kill -INT $PPID; sleep 300", R"("seconds": 300)")},
      {"a program after a step that was wrong",
       R"({"wait": 0, "picture": "${scratch}/none.png", "on-failure": "continue"}, )" +
           program(note + "kill -INT $PPID; sleep 300", R"("seconds": 300)")},
      {"a hang-up", program(note + "kill -HUP $PPID; sleep 300", R"("seconds": 300)")},
      {"a wait", beside + R"(, {"wait": 300})"},
      {"a wait before a retry", beside + R"(, {"program": ["false"], "retries": 1, "retry-wait": 300})"},
      {"a step that is tried again",
       program(note + "kill -INT $PPID; sleep 300", R"("seconds": 300, "retries": 3)")},
  };
  for (const auto& tried : cases) {
    SCOPED_TRACE(tried.about);
    ScriptedPhone phone({MOTOR});
    const std::string folder = TemporaryFolder() + "/aborted";
    const ToolResult result =
        RunTool({"--port", phone.Port(), "--json", "run", PlanOf(tried.steps), "--report", folder});
    EXPECT_EQ(result.status, 6) << result.errors;
    EXPECT_LT(result.took.count(), 200);
    const auto report = nlohmann::json::parse(result.output);
    EXPECT_EQ(report["verdict"], "aborted");
    const auto& steps = report["steps"];
    EXPECT_EQ(steps[steps.size() - 3]["verdict"], "aborted") << result.output;
    EXPECT_EQ(steps[steps.size() - 2]["message"], "not run: the plan was aborted");
    EXPECT_EQ(steps[steps.size() - 1]["verdict"], "passed");
    EXPECT_NE(ReadFile(folder + "/report.xml").find("type=\"aborted\""), std::string::npos);
    std::istringstream noted(ReadFile(notes));
    pid_t child = 0;
    std::string scratch;
    if (noted >> child >> scratch) {
      EXPECT_TRUE(EndsSoon(child));
      EXPECT_FALSE(std::filesystem::exists(scratch));
    }
    EXPECT_EQ(phone.Difference(), "");
  }
}

TEST(Abort, TakesALateAnswerForNoOtherCommand) {
  const std::string number = TemporaryFile("number", "");
  Turn late = {"2600000000000000", "F5D8FFFF"};  // would fail the step after it
  late.before_answer = [&] {
    kill(std::stoi(ReadFile(number)), SIGINT);
    std::this_thread::sleep_for(std::chrono::seconds(2));
  };
  ScriptedPhone phone({late, MOTOR});
  const ToolResult result = RunTool(
      {"--port", phone.Port(), "--timeout", "60000", "run",
       PlanOf(R"({"program": ["sh", "-c", "echo $PPID > )" + number + R"("]}, {"command": "memory-card"})")});
  EXPECT_EQ(result.status, 6) << result.output;
  EXPECT_NE(result.output.find("ABORTED: 2 passed, 1 aborted, 1 not run"), std::string::npos)
      << result.output;
  EXPECT_EQ(phone.Difference(), "");
}

TEST(Abort, CleansUpEachOfSeveralPhones) {
  ScriptedPhone left({MOTOR});
  ScriptedPhone right({MOTOR});
  // Both phones' plans would send a signal, and the second one ends the tool: only the first gets there.
  const std::string once = TemporaryFolder() + "/once";
  std::filesystem::remove(once);
  const ToolResult result = RunTool({"--port", left.Port(), "--port", right.Port(), "run",
                                     PlanOf(R"({"program": ["sh", "-c", "mkdir )" + once +
                                            R"( && kill -TERM $PPID; sleep 300"], "seconds": 300})")});
  EXPECT_EQ(result.status, 6) << result.output;
  EXPECT_EQ(left.Difference() + right.Difference(), "");
}

TEST(Abort, TheSecondSignalEndsAtOnce) {
  const std::string number = TemporaryFile("number", "");
  const std::string plan = TemporaryFile(
      "plan.json", R"({"steps": [{"program": ["sh", "-c", "kill -INT $PPID; sleep 300"], "seconds": 300},
                                 {"always": true, "seconds": 300, "program":
                                  ["sh", "-c", "echo $$ > )" +
                       number + R"(; kill -INT $PPID; sleep 300"]}]})");
  ScriptedPhone phone({});
  const ToolResult result = RunTool({"--port", phone.Port(), "run", plan});
  EXPECT_EQ(result.status, 6);
  EXPECT_EQ(result.output, "");
  EXPECT_LT(result.took.count(), 200);
  EXPECT_TRUE(EndsSoon(std::stoi(ReadFile(number))));
}

TEST(Abort, EndsAQuestion) {
  const Terminal terminal;
  ScriptedPhone phone({MOTOR});
  const std::string plan = PlanOf(
      R"({"program": ["sh", "-c", "sleep 0.3; kill -INT $PPID"], "background": true}, {"question": "Well?"})");
  const ToolResult result = RunTool({"--port", phone.Port(), "run", plan}, terminal.Path());
  EXPECT_EQ(result.status, 6) << result.output;
  EXPECT_EQ(result.output.find("did not answer"), std::string::npos) << result.output;
  EXPECT_EQ(phone.Difference(), "");
}

// As a page ends one run of several. The same thread's next run and the other thread's run are not concerned.
TEST(Abort, AStopEndsOneRunOfSeveral) {
  using station::Verdict;
  const std::string waiting = PlanOf(R"({"wait": 300})");
  const std::string prompt = TemporaryFile("prompt.json", std::string(R"({"steps": [)") + CLEAN_UP);
  ScriptedPhone left({MOTOR, PING, MOTOR});
  ScriptedPhone right({PING, MOTOR});
  station::TerminalOperator person("pass", "");
  const auto run = [&](const std::string& plan, ScriptedPhone& phone, station::RunControl control) {
    return station::PhoneRun(plan, {}, phone.Port()).Run({}, person, control);
  };
  std::stop_source stop;
  std::promise<void> in_the_wait;
  std::thread elsewhere([&] {
    in_the_wait.get_future().wait();
    EXPECT_EQ(run(prompt, right, {.stop = std::stop_source().get_token()}).verdict, Verdict::Passed);
    stop.request_stop();
  });
  std::vector<Verdict> verdicts;
  const station::PlanResult result = run(
      waiting, left,
      {.started =
           [&](std::size_t step, const std::string&) {
             if (step == 0) in_the_wait.set_value();
           },
       .finished = [&](std::size_t, const station::StepResult& step) { verdicts.push_back(step.verdict); },
       .stop = stop.get_token()});
  elsewhere.join();
  EXPECT_EQ(result.verdict, Verdict::Aborted);
  EXPECT_EQ(verdicts, (std::vector{Verdict::Aborted, Verdict::Skipped, Verdict::Passed}));
  EXPECT_EQ(run(prompt, left, {}).verdict, Verdict::Passed);
  EXPECT_EQ(left.Difference() + right.Difference(), "");
}

}  // namespace
