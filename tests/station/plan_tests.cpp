// Test plans: verdicts, exit statuses, reports, several phones at once.
#include <gtest/gtest.h>
#include <re2/re2.h>
#include <sys/stat.h>

#include <barrier>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>
#include <thread>

#include "station/commands/bytes.h"
#include "tests/station/scripted_phone.h"

namespace {

namespace fs = std::filesystem;

const Turn MOTOR = {"2B0000000100000000000000", ZERO};
const Turn NO_CARD = {"2600000000000000", "F5D8FFFF"};

struct PlanCase {
  const char* about;
  std::string plan;
  std::vector<std::string> options;
  std::vector<Turn> phone;
  int status;
  std::string shown;  // part of what is printed
};

ToolResult Try(const PlanCase& tried) {
  SCOPED_TRACE(tried.about);
  ScriptedPhone phone(tried.phone);
  std::vector<std::string> arguments = {"--port", phone.Port(), "run",
                                        TemporaryFile("plan.json", tried.plan)};
  arguments.insert(arguments.end(), tried.options.begin(), tried.options.end());
  const ToolResult result = RunTool(arguments);
  EXPECT_EQ(result.status, tried.status) << result.output << result.errors;
  EXPECT_NE((result.output + result.errors).find(tried.shown), std::string::npos)
      << result.output << result.errors;
  EXPECT_EQ(phone.Difference(), "");
  return result;
}

std::string Steps(const std::string& steps) {
  return "{\"steps\": [" + steps + "]}";
}

TEST(Plans, LimitsAreJudged) {
  const Turn radio = {"2C0000000100000028060000008000000000000000000000", ZERO + "28060000" + "00A00000"};
  const std::string measure = R"({"command": "radio measure", "arguments": {"frequency": 98.5}, "limits": )";
  const Turn version = {"0A00000000000000", ZERO + "52312E32" + Repeat("00", 124)};
  const std::string system = R"({"command": "version system", "limits": {"version": )";
  const Turn blank_check = {"4700000000000000", "FAD8FFFF"};
  const std::vector<PlanCase> cases = {
      {"limits kept",
       Steps(measure +
             R"({"signal": {"minimum": 40960, "maximum": 40960, "mask": "0xF000", "equals": "0xA000"},
                           "frequency": {"equals": "98.5"}}})"),
       {},
       {radio},
       0,
       "passed"},
      {"below",
       Steps(measure + R"({"signal": {"minimum": 40961}}})"),
       {},
       {radio},
       1,
       "signal is 40960, below 40961"},
      {"above",
       Steps(measure + R"({"signal": {"maximum": 4}}})"),
       {},
       {radio},
       1,
       "signal is 40960, above 4"},
      {"unequal",
       Steps(measure + R"({"frequency": {"equals": 1}}})"),
       {},
       {radio},
       1,
       "frequency is 98.5 instead of 1"},
      {"refused",
       Steps(measure + R"({"frequency": {"differs": "98.5"}}})"),
       {},
       {radio},
       1,
       "frequency is 98.5, which is refused"},
      {"a wrong check digit",
       Steps(measure + R"({"signal": {"luhn": true}}})"),
       {},
       {radio},
       1,
       "signal is 40960: its last digit, the check digit, is 0 instead of 4"},
      {"another than the refused",
       Steps(measure + R"({"frequency": {"differs": 98.6}}})"),
       {},
       {radio},
       0,
       ""},
      {"mask",
       Steps(measure + R"({"signal": {"mask": "0xF000", "equals": 41}}})"),
       {},
       {radio},
       1,
       "under mask 0xF000 it is 0xA000 instead of 41"},
      {"a mask on no whole number",
       Steps(measure + R"({"frequency": {"mask": 255, "equals": 41}}})"),
       {},
       {radio},
       4,
       "its value 98.5 is not a whole number"},
      {"a status that is not wanted is told in words",
       Steps(R"({"command": "memory-card", "limits": {"status": {"equals": 0}}})"),
       {},
       {NO_CARD},
       1,
       "-9995 NO_CARD_SERIAL_NUMBER"},
      {"the first broken one decides",
       Steps(measure + R"({"frequency": {"equals": 1}, "signal": {"maximum": 4}}})"),
       {},
       {radio},
       1,
       "frequency is 98.5 instead of 1"},
      {"a mask of all 32 bits",
       Steps(measure + R"({"signal": {"mask": "0xFFFFFFFF", "equals": 40960}}})"),
       {},
       {radio},
       0,
       "passed"},
      {"a mask of more",
       Steps(measure + R"({"signal": {"mask": "0x100000000", "equals": 40960}}})"),
       {},
       {},
       4,
       "is not a mask of 32 bits"},
      {"a yes as a text",
       Steps(R"({"command": "key poll", "limits": {"new": {"equals": "true"}}})"),
       {},
       {{"2700000000000000", "00110000"}},
       0,
       "passed"},
      {"pattern kept", Steps(system + R"({"pattern": "^R1\\."}}})"), {}, {version}, 0, "passed"},
      {"pattern broken, in words",
       Steps(system + R"({"pattern": "^R2", "pattern-help": "a version 2"}}})"),
       {},
       {version},
       1,
       "instead of a version 2"},
      {"words without a pattern",
       Steps(system + R"({"pattern-help": "a version 2"}}})"),
       {},
       {},
       4,
       "needs a pattern"},
      {"pattern broken",
       Steps(system + R"({"pattern": "^R2"}}})"),
       {},
       {version},
       1,
       "which does not match ^R2"},
      {"a limit on what is not read",
       Steps(system + R"({"equals": "R1.2"}, "build": {"equals": 7}}})"),
       {},
       {},
       4,
       "step 1: limit on \"build\": the command has no such reading; it reads status, version"},
      {"a range of a text", Steps(system + R"({"minimum": 1}}})"), {}, {}, 4, "it is not a number"},
      {"a number that is none",
       Steps(measure + R"({"signal": {"equals": "x"}}})"),
       {},
       {},
       4,
       "but \"x\" is not"},
      {"a failure that is wanted",
       Steps(R"({"command": "identity check-blank", "limits": {"status": {"equals": -9990}}})"),
       {},
       {blank_check},
       0,
       "passed"},
  };
  for (const PlanCase& tried : cases) Try(tried);
}

TEST(Plans, StepsFollowEachOther) {
  const std::vector<PlanCase> cases = {
      {"comments, passing",
       Steps("// a comment\n{\"command\": \"ping\"}"),
       {},
       {PING},
       0,
       "passed: 1 passed"},
      {"stops at a failure, but cleans up",
       Steps(R"({"command": "memory-card"}, {"command": "ping"}, {"command": "motor on", "always": true})"),
       {},
       {NO_CARD, MOTOR},
       1,
       "FAILED: 1 passed, 1 failed, 1 not run"},
      {"goes on after a failure",
       Steps(R"({"command": "memory-card", "on-failure": "continue"}, {"command": "ping"})"),
       {},
       {NO_CARD, PING},
       1,
       "FAILED: 1 passed, 1 failed"},
      {"a plan that goes on after failures, but not after one",
       R"({"on-failure": "continue", "steps": [{"command": "memory-card"},
            {"command": "memory-card", "on-failure": "stop"}, {"command": "ping"}]})",
       {},
       {NO_CARD, NO_CARD},
       1,
       "FAILED: 0 passed, 2 failed, 1 not run"},
      {"tries again",
       Steps(R"({"command": "memory-card", "retries": 2, "retry-wait": 0.01})"),
       {},
       {NO_CARD, {"2600000000000000", ZERO}},
       0,
       "in 2 attempts"},
      {"tries again after silence",
       Steps(R"({"command": "ping", "retries": 1, "retry-wait": 0})"),
       {"--timeout", "2000"},
       {{PING.expected, ""}, PING},
       0,
       "in 2 attempts"},
      {"gives up after its retries",
       Steps(R"({"command": "memory-card", "retries": 2, "retry-wait": 0})"),
       {},
       {NO_CARD, NO_CARD, NO_CARD},
       1,
       "in 3 attempts"},
      {"repeats until it fails",
       Steps(R"({"command": "memory-card", "repeat": 3})"),
       {},
       {{NO_CARD.expected, ZERO}, NO_CARD},
       1,
       "FAILED"},
      {"repeats", Steps(R"({"command": "ping", "repeat": 3})"), {}, {PING, PING, PING}, 0, "passed"},
      {"silence",
       Steps(R"({"command": "ping"}, {"command": "ping"})"),
       {"--timeout", "300"},
       {{PING.expected, ""}},
       3,
       "no answer to ping (code 0x00) within 300 ms"},
      {"variables",
       R"({"variables": {"level": {"default": 3}, "card": {"default": ""}}, "steps": [
            {"command": "led", "arguments": {"colour": "${level}"}},
            {"command": "memory-card", "if": "${card}"}]})",
       {"--set", "level=5"},
       {{"390000000500000000000000", ZERO}},
       5,
       "INCOMPLETE: 1 passed, 1 not run"},
      {"what is optional leaves no gap",
       R"({"variables": {"card": {"default": "", "optional": true}}, "steps": [
            {"command": "ping"}, {"command": "memory-card", "if": "${card}"}]})",
       {},
       {PING},
       0,
       "passed: 1 passed, 1 not run"},
      {"a failure is graver than a gap",
       R"({"variables": {"card": {"default": ""}}, "steps": [
            {"command": "ping", "if": "${card}"}, {"command": "memory-card"}]})",
       {},
       {NO_CARD},
       1,
       "FAILED: 0 passed, 1 failed, 1 not run"},
      {"an answered question",
       Steps(R"({"question": "Does it shine?"})"),
       {"--answers", "pass"},
       {},
       0,
       "Does it shine?"},
      {"a question answered with fail",
       Steps(R"({"question": "Does it shine?"})"),
       {"--answers", "fail"},
       {},
       1,
       "answered with fail (--answers fail)"},
      {"an answer for each step",
       Steps(R"({"name": "A", "question": "?", "on-failure": "continue"}, {"name": "B", "question": "?"})"),
       {"--answers", TemporaryFile("answers.json", R"({"A": "fail", "B": "pass"})")},
       {},
       1,
       "FAILED: 1 passed, 1 failed"},
  };
  for (const PlanCase& tried : cases) Try(tried);
}

TEST(Plans, RetriesWaitAndQuestionsTimeOut) {
  const ToolResult retried = Try({"waits before a retry",
                                  Steps(R"({"command": "memory-card", "retries": 1, "retry-wait": 0.7})"),
                                  {},
                                  {NO_CARD, {NO_CARD.expected, ZERO}},
                                  0,
                                  "in 2 attempts"});
  EXPECT_GE(retried.took.count(), 0.7);
  EXPECT_EQ(retried.output.find("NO_CARD"), std::string::npos) << "the first try's failure is forgotten";

  const Terminal terminal;
  const std::string plan =
      TemporaryFile("plan.json", Steps(R"({"question": "Does it shine?", "seconds": 0.5})"));
  ScriptedPhone phone({});
  const ToolResult silence = RunTool({"--port", phone.Port(), "run", plan}, terminal.Path());
  EXPECT_EQ(silence.status, 1);
  EXPECT_NE(silence.output.find("the operator did not answer"), std::string::npos) << silence.output;
  EXPECT_GE(silence.took.count(), 0.5);
}

TEST(Plans, ProgramsAndPicturesAreSteps) {
  const std::vector<PlanCase> cases = {
      {"a program that passes",
       Steps(R"({"program": ["sh", "-c", "echo fine"]}, {"wait": 0.01})"),
       {},
       {},
       0,
       "passed"},
      {"a program that fails",
       Steps(R"({"program": ["sh", "-c", "echo broken; exit 3"]})"),
       {},
       {},
       1,
       "it ended with exit status 3: broken"},
      {"a program that hangs",
       Steps(R"({"program": ["sleep", "60"], "seconds": 0.1})"),
       {},
       {},
       1,
       "still running"},
      {"a program that never stops talking",
       Steps(R"({"program": ["yes"], "seconds": 0.1})"),
       {},
       {},
       1,
       "it was still running after 0.1 s"},
      {"a program that leaves one behind that never stops talking",
       Steps(R"({"program": ["sh", "-c", "timeout 5 yes & sleep 0.1"], "seconds": 4})"),
       {},
       {},
       0,
       "passed"},
      {"a shell's own variable",
       Steps(R"({"program": ["sh", "-c", "X=5; exit $${X}"]})"),
       {},
       {},
       1,
       "exit status 5"},
      {"a program's picture",
       Steps(
           R"({"program": ["sh", "-c", "echo ${port} > ${scratch}/lcd.png"], "picture": "${scratch}/lcd.png"})"),
       {},
       {},
       0,
       "passed"},
      {"a picture that is not there",
       Steps(R"({"wait": 0, "picture": "${scratch}/x.png"})"),
       {},
       {},
       4,
       "there is no file"},
      {"a program that fails before it made its picture",
       Steps(R"({"program": ["sh", "-c", "echo broken; exit 3"], "picture": "${scratch}/x.png"})"),
       {},
       {},
       1,
       "it ended with exit status 3: broken"},
      {"a program beside the steps",
       Steps(
           R"({"name": "helper", "program": ["sh", "-c", "exit 4"], "background": true}, {"command": "ping"})"),
       {},
       {PING},
       1,
       "exit status 4"},
  };
  for (const PlanCase& tried : cases) Try(tried);
}

// Neither the picture nor the words of a try that failed are the step's.
TEST(Plans, AFailedTryLeavesNothingInTheRecord) {
  const std::string once = TemporaryFolder() + "/tried";
  const std::string script = "if mkdir " + once +
                             "; then echo bad; printf first > ${scratch}/a.png; exit 1; fi 2>/dev/null; "
                             "printf second > ${scratch}/a.png";
  const std::string folder = TemporaryFolder() + "/tries";
  Try({"",
       Steps(R"({"program": ["sh", "-c", ")" + script +
             R"("], "picture": "${scratch}/a.png", "retries": 1, "retry-wait": 0})"),
       {"--report", folder},
       {},
       0,
       "in 2 attempts"});
  const auto report = nlohmann::json::parse(ReadFile(folder + "/report.json"));
  EXPECT_GT(report["milliseconds-waited"], 0) << "the program's time";
  const auto& step = report["steps"][0];
  EXPECT_EQ(step["pictures"], nlohmann::json::parse(R"(["01-a.png"])"));
  EXPECT_EQ(step["readings"], nlohmann::json::object());
  EXPECT_EQ(ReadFile(folder + "/01-a.png"), "second");
}

// What is read after the programming is what the phone has.
TEST(Plans, TheLastReadingIsThePhonesRecordAndJUnitsTimeIsUniversal) {
  const auto identity = [](const char* digits) { return Turn{"0B00000000000000", ZERO + digits}; };
  const auto version = [](const char* text) {
    return Turn{"0A00000000000000", ZERO + text + Repeat("00", 126)};
  };
  const std::string plan = TemporaryFile("plan.json", Steps(R"(
    {"command": "identity read"}, {"command": "version system"}, {"command": "identity read"}, {"command": "version system"},
    {"wait": 0, "picture": "${scratch}/none.png"})"));
  for (const auto& [zone, offset, hours] :
       {std::tuple("<+14>-14", "+14:00", 14), {"<-11>11", "-11:00", -11}}) {
    ScriptedPhone phone({identity("303030303030303131323334353634"), version("5231"),
                         identity("343930313534323033323337353138"), version("5232")});
    const std::string folder = TemporaryFolder() + "/read-twice";
    EXPECT_EQ(RunProgram({"env", std::string("TZ=") + zone, PHONETEST_PROGRAM, "--port", phone.Port(), "run",
                          plan, "--report", folder})
                  .status,
              4);
    EXPECT_EQ(phone.Difference(), "");
    const auto report = nlohmann::json::parse(ReadFile(folder + "/report.json"));
    EXPECT_EQ(report["phone"]["identity"], "490154203237518");
    EXPECT_EQ(report["phone"]["versions"]["system"], "R2");
    const std::string started = report["started"];
    EXPECT_TRUE(started.ends_with(offset)) << started;
    std::tm local{}, universal{};
    strptime(started.c_str(), "%Y-%m-%dT%H:%M:%S", &local);
    pugi::xml_document junit;
    ASSERT_TRUE(junit.load_file((folder + "/report.xml").c_str()));
    const pugi::xml_node suite = junit.child("testsuites").child("testsuite");
    strptime(suite.attribute("timestamp").value(), "%Y-%m-%dT%H:%M:%S", &universal);
    EXPECT_EQ(timegm(&local) - timegm(&universal), hours * 3600);
    EXPECT_EQ(suite.attribute("errors").as_int(), 1) << "a plan's mistake is an error";
  }
}

// Each is refused with one sentence, or judged, at once: no file, text or pattern costs the station its time
// or memory.
TEST(Plans, HostileOnesHoldNobodyUp) {
  const std::string fifo = TemporaryFolder() + "/fifo.png";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const Turn version = {"0A00000000000000", ZERO + Repeat("61", 128)};
  const auto pattern = [](const std::string& text) {
    return Steps(R"({"command": "version system", "limits": {"version": {"pattern": ")" + text + "\"}}}");
  };
  const auto picture = [](const std::string& path) {
    return Steps(R"({"wait": 0, "picture": ")" + path + "\"}");
  };
  const std::vector<PlanCase> cases = {
      {"nested arrays", Repeat("[", 50'000) + Repeat("]", 50'000), {}, {}, 4, "nested more than"},
      {"nested objects",
       Repeat("{\"steps\":", 50'000) + "1" + Repeat("}", 50'000),
       {},
       {},
       4,
       "nested more than"},
      {"a plan of more than 4 MiB",
       Steps(R"({"wait": 0})") + std::string(4 << 20, ' '),
       {},
       {},
       4,
       "is larger than 4194304 bytes"},
      {"a pattern that tries all ways", pattern("^(a*)*b$"), {}, {version}, 1, "does not match"},
      {"a pattern that multiplies", pattern("((a{1,100}){1,100}){1,100}"), {}, {}, 4, "pattern"},
      {"a picture without end", picture("/dev/zero"), {}, {}, 4, "/dev/zero is not an ordinary file"},
      {"a picture that never comes", picture(fifo), {}, {}, 4, "is not an ordinary file"},
  };
  for (const PlanCase& tried : cases) {
    EXPECT_LT(Try(tried).took.count(), 30) << tried.about;
  }
  const ToolResult loud = Try({"a program that prints much",
                               Steps(R"({"program": ["sh", "-c", "yes | head -c 1000000"]})"),
                               {"--json"},
                               {},
                               0,
                               ""});
  const std::string kept = nlohmann::json::parse(loud.output)["steps"][0]["readings"]["output"];
  EXPECT_GT(kept.size(), 64'000u);
  EXPECT_LT(kept.size(), 70'000u);
  EXPECT_EQ(RunTool({"--port", "/dev/null", "run", "/dev/zero"}).status, 4);
  EXPECT_EQ(RunTool({"--port", "/dev/null", "run", fifo}).status, 4);
}

TEST(Plans, NothingOfAProgramSurvivesItsTime) {
  const std::string number = TemporaryFile("number", "");
  const std::string script = "sleep 60 & echo $! > " + number + "; wait";
  Try({"a program with a child",
       Steps(R"({"program": ["sh", "-c", ")" + script + R"("], "seconds": 0.5})"),
       {},
       {},
       1,
       "it was still running after 0.5 s"});
  const pid_t child = std::stoi(ReadFile(number));
  const auto gone = [child] {
    const std::string state = ReadFile("/proc/" + std::to_string(child) + "/stat");
    return state.empty() || state.find(") Z ") != std::string::npos;
  };
  for (int tries = 0; tries < 200 && !gone(); ++tries)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_TRUE(gone());
}

TEST(Plans, MistakesAreFoundBeforeAnythingIsSent) {
  const std::string ping = R"({"command": "ping"}, )";
  const auto variable = [](const std::string& checks) {
    return R"({"variables": {"x": {)" + checks + R"(, "required": true}}, "steps": [{"command": "ping"}]})";
  };
  const std::vector<PlanCase> cases = {
      {"syntax", "{\"steps\": [\n{\"command\": }]}", {}, {}, 4, "line 2, column 13"},
      {"a required variable that is not given",
       R"({"variables": {"number": {"help": "a number", "required": true}}, "steps": [{"command": "ping"}]})",
       {},
       {},
       4,
       "variable \"number\" is not set: give --set number=VALUE, a number"},
      {"a required variable that is empty",
       R"({"variables": {"number": {"default": 1, "required": true}}, "steps": [{"command": "ping"}]})",
       {"--set", "number="},
       {},
       4,
       "variable \"number\" is not set"},
      {"an unknown key of a variable",
       R"({"variables": {"x": {"default": "", "requird": true}}, "steps": [{"command": "ping"}]})",
       {},
       {},
       4,
       "variable \"x\": unknown key \"requird\""},
      {"too few digits",
       variable(R"("digits": 4)"),
       {"--set", "x=123"},
       {},
       4,
       "\"x\": 123: it is not a number of 4"},
      {"letters for digits",
       variable(R"("digits": 4)"),
       {"--set", "x=12E3"},
       {},
       4,
       "not a number of 4 digits"},
      {"a wrong check digit",
       variable(R"("luhn": true)"),
       {"--set", "x=79927398710"},
       {},
       4,
       "is 0 instead of 3"},
      {"no whole match",
       variable(R"("pattern": "[a-c]+")"),
       {"--set", "x=abcd"},
       {},
       4,
       "does not match [a-c]+"},
      {"a refused value", variable(R"("differs": ["0", "fF"])"), {"--set", "x=Ff"}, {}, 4, "is refused"},
      {"below", variable(R"("minimum": "0x10")"), {"--set", "x=15"}, {}, 4, "it is below 16"},
      {"no number", variable(R"("minimum": "0x10")"), {"--set", "x=0x1G"}, {}, 4, "it is not a number"},
      {"above", variable(R"("maximum": 1.5)"), {"--set", "x=1.6"}, {}, 4, "it is above 1.5"},
      {"a short file",
       variable(R"("file-size": 3)"),
       {"--set", "x=" + TemporaryFile("short", "ab")},
       {},
       4,
       "the file holds 2 bytes instead of 3"},
      {"a long file",
       variable(R"("file-size": 1)"),
       {"--set", "x=" + TemporaryFile("long", "ab")},
       {},
       4,
       "the file holds 2 bytes instead of 1"},
      {"no repetition", Steps(R"({"command": "ping", "repeat": 0})"), {}, {}, 4, "from 1 to 1000000"},
      {"a retry less than none",
       Steps(R"({"command": "ping", "retries": -1})"),
       {},
       {},
       4,
       "from 0 to 1000000"},
      {"too many retries",
       Steps(R"({"command": "ping", "retries": 1000001})"),
       {},
       {},
       4,
       "from 0 to 1000000"},
      {"more than a day", Steps(R"({"wait": 86401})"), {}, {}, 4, "from 0 to 86400"},
      {"a wrong check of a variable",
       variable(R"("digits": "4")"),
       {"--set", "x=1"},
       {},
       4,
       "not a whole number"},
      {"a value that keeps all its checks",
       variable(
           R"("digits": 11, "luhn": true, "pattern": "7.*", "differs": "0", "minimum": 79927398713, "maximum": 79927398713)"),
       {"--set", "x=79927398713"},
       {PING},
       0,
       "passed"},
      {"a production step with a wrong number",
       Steps(R"({"command": "identity write", "arguments": {"identity": "490154203237519"}})"),
       {},
       {},
       4,
       "check digit, is 9 instead of 8"},
      {"a limit that nothing can keep",
       Steps(R"({"command": "radio measure", "arguments": {"frequency": 98.5}, "limits":
                 {"signal": {"minimum": 2, "maximum": 1}}})"),
       {},
       {},
       4,
       "the minimum 2 is above the maximum 1"},
      {"a program as a text", Steps(R"({"program": "true"})"), {}, {}, 4, "\"program\" is not a list"},
      {"no steps", "{}", {}, {}, 4, "a plan needs \"steps\""},
      {"unknown command",
       Steps(ping + R"({"command": "pong"})"),
       {},
       {},
       4,
       "step 2: there is no command \"pong\""},
      {"unknown key",
       Steps(ping + R"({"name": "x", "comand": "ping"})"),
       {},
       {},
       4,
       "step 2 \"x\": a step needs a"},
      {"misplaced key", Steps(R"({"wait": 1, "limits": {}})"), {}, {}, 4, "unknown key \"limits\""},
      {"unknown argument",
       Steps(R"({"command": "led", "arguments": {"color": 1}})"),
       {},
       {},
       4,
       "no argument \"color\"; did you mean colour?"},
      {"missing argument", Steps(R"({"command": "led"})"), {}, {}, 4, "colour is missing"},
      {"bad argument",
       Steps(R"({"command": "led", "arguments": {"colour": "x"}})"),
       {},
       {},
       4,
       "'x' is not off, or a number from 0 to 7"},
      {"outside the range",
       Steps(R"({"command": "tone start", "arguments": {"frequency": 22051}})"),
       {},
       {},
       4,
       "frequency: '22051' is not a number from 0 to 22050 Hz"},
      {"arguments that exclude each other",
       Steps(R"({"command": "clock set", "arguments": {"time": "2024-02-29 00:00:00", "now": true}})"),
       {},
       {},
       4,
       "exclude each other"},
      {"bad pattern",
       Steps(R"({"command": "versions", "limits": {"system": {"pattern": "("}}})"),
       {},
       {},
       4,
       "pattern"},
      {"bad limit",
       Steps(R"({"command": "versions", "limits": {"system": {"least": 1}}})"),
       {},
       {},
       4,
       "\"least\""},
      {"limits of a wrong kind", Steps(R"({"command": "ping", "limits": 5})"), {}, {}, 4, "step 1"},
      {"variable without value",
       R"({"variables": {"id": {"help": "15 digits"}}, "steps": [{"command": "ping"}]})",
       {},
       {},
       4,
       "give --set id=VALUE, 15 digits"},
      {"unknown variable set",
       Steps(R"({"command": "ping"})"),
       {"--set", "id=1"},
       {},
       4,
       "no variable \"id\""},
      {"unknown variable used",
       Steps(R"({"name": "${x}", "command": "ping"})"),
       {},
       {},
       4,
       "no variable \"x\""},
      {"a question that nobody can answer",
       Steps(ping + R"({"question": "Does it shine?"})"),
       {},
       {},
       4,
       "step 2 \"Does it shine?\" asks the operator, and there is no terminal"},
      {"a question that --yes does not answer",
       Steps(R"({"question": "Does it shine?"})"),
       {"--yes"},
       {},
       4,
       "there is no terminal: use --answers"},
      {"a question without its answer",
       Steps(ping + R"({"question": "Does it shine?"})"),
       {"--answers", TemporaryFile("answers.json", "{}")},
       {},
       2,
       "has no answer for step 2"},
      {"an answer to no question",
       Steps(ping + R"({"name": "Shines", "question": "Does it shine?"})"),
       {"--answers", TemporaryFile("more.json", R"({"Shines": "pass", "Shine": "pass"})")},
       {},
       2,
       "answers \"Shine\", which is no question of the plan; did you mean Shines?"},
      {"an answer that is none",
       Steps(R"({"command": "ping"})"),
       {"--answers", TemporaryFile("wrong.json", R"({"A": "perhaps"})")},
       {},
       2,
       "is not pass or fail"},
      {"a terminal's command", Steps(R"({"command": "modem pass-through"})"), {}, {}, 4, "needs a person"},
      {"a wrong option", Steps(R"({"command": "ping"})"), {"--set", "id"}, {}, 2, "not NAME=VALUE"},
  };
  for (const PlanCase& tried : cases) Try(tried);
  EXPECT_EQ(RunTool({"--port", "/dev/null", "run", "/no/such/plan"}).status, 4);
}

// No phone is there, and nothing is asked.
TEST(Plans, AreCheckedAndListedWithoutAPhone) {
  const std::string wrong = TemporaryFile("wrong.json", R"({
    "variables": {"id": {"required": true}, "number": {"draw": "pool"}, "other": {"draw": 5},
                  "third": {"draw": "pool"}, "word": {"default": "12", "digits": 3}}, "line": {"require": "Board"}, "steps": [
      {"command": "identity write", "arguments": {"identity": "${id}"}},
      {"name": "Versions", "command": "versions", "limits": {"sytem": {"equals": "1"}}},
      {"if": "", "command": "camera capture", "arguments": {"picture": "focus"}, "limits": {"spots": {"maximum": 0}}},
      {"wait": 1, "always": "yes"},
      {"command": "identity write", "arguments": {"identity": "${number}"}}]})");
  const ToolResult checked = RunTool({"--json", "run", "--check", wrong});
  EXPECT_EQ(checked.status, 4);
  const auto mistakes = nlohmann::json::parse(checked.output)["mistakes"];
  const char* beginnings[] = {"variable \"id\" is not set",
                              "variable \"other\": \"draw\" must be the name",
                              "variable \"third\": another variable draws from",
                              "variable \"word\": 12: it is not a number of 3",
                              "\"line\": unknown key \"require\"",
                              "step 2 \"Versions\": limit on \"sytem\"",
                              "step 3: limit on \"spots\"",
                              "step 4: \"always\""};
  ASSERT_EQ(mistakes.size(), std::size(beginnings)) << mistakes;
  for (std::size_t i = 0; i < mistakes.size(); ++i)
    EXPECT_EQ(mistakes[i].get<std::string>().find(beginnings[i]), 0u);

  // The answers are checked too: whether they can be read, and whether they fit.
  const std::string asking = TemporaryFile("asking.json", Steps(R"({"name": "Shines", "question": "?"})"));
  const struct {
    std::string answers;
    std::string told;
  } files[] = {
      {"/no/answers", "/no/answers"},
      {TemporaryFile("list.json", "[]"), "is not a JSON object of answers"},
      {TemporaryFile("perhaps.json", R"({"Shines": "perhaps"})"), "is not pass or fail"},
      {TemporaryFile("none.json", "{}"), "has no answer for step 1 \"Shines\""},
      {TemporaryFile("other.json", R"({"Shines": "pass", "Shime": "fail"})"), "did you mean Shines?"}};
  for (const auto& file : files) {
    const ToolResult refused = RunTool({"run", "--check", asking, "--answers", file.answers});
    EXPECT_EQ(refused.status, 2) << file.answers;
    EXPECT_NE(refused.errors.find(file.told), std::string::npos) << refused.errors;
  }
  const ToolResult listed_mistakes =
      RunTool({"--json", "run", "--check", asking, "--answers", files[3].answers});
  EXPECT_EQ(listed_mistakes.status, 2);
  EXPECT_EQ(nlohmann::json::parse(listed_mistakes.output)["mistakes"].size(), 1u);
  EXPECT_EQ(RunTool({"run", "--check", asking, "--answers", "fail"}).status, 0);
  EXPECT_EQ(RunTool({"run", "--check", asking}).status, 0) << "nobody is asked yet";

  for (const char* plan : {PLANS "/quick.json", PLANS "/service.json"})
    EXPECT_NE(RunTool({"run", "--check", plan}).output.find(": no mistake in "), std::string::npos);
  const ToolResult listed = RunTool({"--json", "run", "--list", PLANS "/factory.json"});
  const auto steps = nlohmann::json::parse(listed.output)["steps"];
  const auto band =
      std::ranges::find_if(steps, [](const auto& step) { return step["name"] == "Blemish picture"; });
  ASSERT_NE(band, steps.end());
  EXPECT_EQ((*band)["command"], "camera capture");
  EXPECT_TRUE(std::ranges::any_of((*band)["limits"], [](const auto& limit) { return limit["unit"] == "%"; }));
  const std::string text = RunTool({"run", "--list", PLANS "/factory.json"}).output;
  EXPECT_NE(text.find("identity: equal to ${identity}\n"), std::string::npos) << text;
}

// Types the line when the tool has asked: what is typed before a question is not an answer to it.
ToolResult RunToolAtTerminal(const std::vector<std::string>& arguments, const std::string& line) {
  const Terminal terminal;
  bool answered = false;
  return RunTool(arguments, terminal.Path(), [&](const ToolResult& so_far) {
    if (answered || so_far.errors.find("] ") == std::string::npos) return;
    terminal.Type(line);
    answered = true;
  });
}

TEST(Plans, TheOperatorIsAsked) {
  const std::string plan = TemporaryFile("plan.json", Steps(R"({"question": "Does it shine?"})"));
  ScriptedPhone phone({Turn{"0200000000000000", ""}});
  const ToolResult no = RunToolAtTerminal({"--port", phone.Port(), "run", plan}, "n\n");
  EXPECT_EQ(no.status, 1);
  EXPECT_NE(no.errors.find(phone.Port() + ": Does it shine? [p/f]"), std::string::npos) << no.errors;
  EXPECT_NE(no.output.find("answered with fail (operator at the terminal)"), std::string::npos) << no.output;
  // Neither Enter nor another letter is an answer.
  const ToolResult yes =
      RunToolAtTerminal({"--port", phone.Port(), "--json", "run", plan, "--operator", "Ada"}, "\nx\np\n");
  EXPECT_EQ(yes.status, 0);
  EXPECT_NE(yes.errors.find("Type p (pass, yes) or f (fail, no)"), std::string::npos) << yes.errors;
  const auto asked = nlohmann::json::parse(yes.output)["steps"][0]["answer"];
  EXPECT_EQ(asked["reply"], "pass");
  EXPECT_EQ(asked["by"], "Ada");
  EXPECT_TRUE(asked.contains("at"));

  // What was typed before the question is no answer to it.
  const Terminal early;
  early.Type("p\n");
  bool typed = false;
  const ToolResult late =
      RunTool({"--port", phone.Port(), "run", plan}, early.Path(), [&](const ToolResult& so_far) {
        if (!typed && so_far.errors.find("] ") != std::string::npos) early.Type("f\n"), typed = true;
      });
  EXPECT_EQ(late.status, 1) << late.output;

  const ToolResult kept = RunToolAtTerminal({"--port", phone.Port(), "power-off"}, "\n");
  EXPECT_EQ(kept.status, 2);
  EXPECT_NE(kept.errors.find("Power the phone off? [y/N]"), std::string::npos) << kept.errors;
  EXPECT_EQ(RunToolAtTerminal({"--port", phone.Port(), "power-off"}, "y\n").status, 0);
  EXPECT_EQ(phone.Difference(), "");
}

void ExpectRecord(const std::string& file) {
  const char* script =
      "import json, jsonschema, sys\n"
      "jsonschema.validate(json.load(open(sys.argv[2])), json.load(open(sys.argv[1])))";
  const ToolResult valid = RunProgram({"python3", "-c", script, DOCUMENTS "/report.schema.json", file});
  EXPECT_EQ(valid.status, 0) << valid.errors;
}

// The identity, the versions, each limit and a program's end, of one phone and of several, also without link.
TEST(Plans, RecordsSayWhatWasTested) {
  const Turn identity = {"0B00000000000000", ZERO + "313233343536373839303132333435"};
  const std::string plan = TemporaryFile("plan.json", Steps(R"(
    {"command": "identity read", "on-failure": "continue", "limits": {"identity": {"pattern": "^9"}, "status": {"equals": 0}}},
    {"program": ["sh", "-c", "kill -9 $$"], "on-failure": "continue"},
    {"program": ["sh", "-c", "exit 3"]}, {"question": "Does it shine?"})"));
  ScriptedPhone phone({identity});
  const ToolResult both =
      RunTool({"--port", phone.Port(), "--port", "/dev/null", "--json", "run", plan, "--answers", "pass"});
  EXPECT_EQ(phone.Difference(), "");
  const auto records = nlohmann::json::parse(both.output);
  ExpectRecord(TemporaryFile("records.json", both.output));
  ASSERT_EQ(records.size(), 2u);
  const auto& record = records[0];
  EXPECT_EQ(record["phone"]["identity"], "123456789012345");
  const auto limits = nlohmann::json::parse(R"([
    {"reading": "identity", "limit": {"pattern": "^9"}, "value": "123456789012345", "verdict": "device failure"},
    {"reading": "status", "limit": {"equals": 0}, "value": 0, "verdict": "passed"}])");
  EXPECT_EQ(record["steps"][0]["limits"], limits);
  EXPECT_EQ(record["steps"][1]["program"]["signal"], 9);
  EXPECT_EQ(record["steps"][2]["program"]["exit-status"], 3);
  EXPECT_EQ(record["steps"][3]["question"], "Does it shine?");
  EXPECT_EQ(records[1]["verdict"], "link failure");
}

TEST(Plans, ReportsHoldEverything) {
  const std::string picture = GreyJpeg(8, 8, 1);
  const std::size_t size = picture.size() / 2;
  station::Bytes count;
  station::AppendWord(count, static_cast<std::uint32_t>(size));
  ScriptedPhone phone(
      {{PING.expected, PING.answer, std::chrono::milliseconds(50)},
       {"240000000A000000080000000800000000000000", ZERO},
       {"410000000F000000", ZERO + Repeat("00", 1024)},
       {"410000000E000000", station::HexText(count, "") + picture + Repeat("00", 1024 - size)},
       {"240000000C000000" + Repeat("00", 12), ZERO},
       NO_CARD});
  const std::string plan = TemporaryFile("plan.json", R"({
    "name": "A <small> plan & \"more\"",
    "variables": {"identity": {}},
    "steps": [
      {"name": "Server\u0001", "command": "ping"},
      {"name": "Blemish", "command": "camera capture", "arguments": {"picture": "blemish", "size": "8x8"},
       "limits": {"width": {"equals": 8}, "height": {"minimum": 4, "maximum": 8}}},
      {"name": "Card", "command": "memory-card"},
      {"name": "Card", "command": "ping"}]})");
  const fs::path folder = fs::path(TemporaryFolder()) / "report";
  const ToolResult result = RunTool({"--port", phone.Port(), "run", plan, "--set", "identity=123", "--report",
                                     folder, "--json", "--station", "Line 3", "--operator", "Ada"});
  EXPECT_EQ(result.status, 1) << result.errors;
  EXPECT_EQ(phone.Difference(), "");

  const auto report = nlohmann::json::parse(ReadFile(folder / "report.json"));
  EXPECT_EQ(report, nlohmann::json::parse(result.output));
  EXPECT_EQ(report["verdict"], "device failure");
  EXPECT_EQ(report["variables"]["identity"], "123");
  EXPECT_EQ(report["station"], "Line 3");
  EXPECT_EQ(report["operator"], "Ada");
  EXPECT_EQ(report["plan-sha256"], RunProgram({"sha256sum", plan}).output.substr(0, 64));
  const auto limits = nlohmann::json::parse(R"([
    {"reading": "height", "limit": {"minimum": 4, "maximum": 8}, "value": 8, "unit": "pixels", "verdict": "passed"},
    {"reading": "width", "limit": {"equals": 8}, "value": 8, "unit": "pixels", "verdict": "passed"}])");
  EXPECT_EQ(report["steps"][1]["limits"], limits);
  ExpectRecord(folder / "report.json");
  EXPECT_EQ(report["steps"][0]["exchanges"][0]["sent"], "0000000000000000");
  EXPECT_EQ(report["steps"][1]["exchanges"].size(), 4u);
  EXPECT_EQ(report["steps"][1]["readings"]["width"], 8);
  EXPECT_EQ(report["steps"][1]["pictures"][0], "02-blemish.jpg");
  EXPECT_EQ(report["steps"][2]["message"], "-9995 NO_CARD_SERIAL_NUMBER: no card: its serial number is 0");
  EXPECT_EQ(report["steps"][3]["verdict"], "skipped");
  EXPECT_EQ(ReadFile(folder / "02-blemish.jpg").size(), size);

  const std::string html = ReadFile(folder / "report.html");
  // The failure stands before the facts and the steps, and a limit beside its value.
  EXPECT_LT(html.find("step 3, Card</a>: -9995 NO_CARD"), html.find("<dt>station</dt><dd>Line 3</dd>"));
  EXPECT_NE(html.find("<td>height</td><td>8 pixels</td><td>at least 4, at most 8</td><td>passed</td>"),
            std::string::npos);
  EXPECT_NE(html.find("A &lt;small&gt; plan &amp; &quot;more&quot;"), std::string::npos);
  const std::string coded = RunProgram({"base64", "-w0", folder / "02-blemish.jpg"}).output;
  EXPECT_NE(html.find("src=\"data:image/jpeg;base64," + coded + "\""), std::string::npos);
  EXPECT_NE(html.find("&lt; F5 D8 FF FF"), std::string::npos);
  for (const char* outside : {"http:", "https:", "src=\"/", "@import"})
    EXPECT_EQ(html.find(outside), std::string::npos);

  const ToolResult valid =
      RunProgram({"xmllint", "--noout", "--schema", JUNIT_SCHEMA, folder / "report.xml"});
  EXPECT_EQ(valid.status, 0) << valid.errors;
  pugi::xml_document junit;
  ASSERT_TRUE(junit.load_file((folder / "report.xml").c_str()));
  const pugi::xml_node suite = junit.child("testsuites").child("testsuite");
  const auto at = [](const pugi::xml_node& node, const char* name) {
    return std::string(node.attribute(name).value());
  };
  EXPECT_EQ(at(suite, "name"), "A <small> plan & \"more\"");
  EXPECT_EQ(at(suite, "tests"), "4");
  EXPECT_EQ(at(suite, "failures"), "1");
  EXPECT_EQ(at(suite, "errors"), "0");
  EXPECT_EQ(at(suite, "skipped"), "1");
  const double whole = report["milliseconds"].get<double>() / 1000;
  EXPECT_NEAR(suite.attribute("time").as_double(), whole, 0.001);
  double sum = 0;
  std::vector<std::string> names;
  for (const pugi::xml_node& testcase : suite.children("testcase")) {
    const double took = report["steps"][names.size()]["milliseconds"].get<double>() / 1000;
    EXPECT_NEAR(testcase.attribute("time").as_double(), took, 0.001);
    sum += took;
    names.push_back(at(testcase, "name"));
  }
  EXPECT_EQ(names, (std::vector<std::string>{"Server?", "Blemish", "Card", "Card (2)"}));
  EXPECT_GE(whole, sum);
  EXPECT_GE(whole, 0.05);  // the phone's first answer took as long
  EXPECT_LE(whole, result.took.count());
  EXPECT_NE(suite.find_child_by_attribute("testcase", "name", "Card").child("failure"), nullptr);
  const std::string blemish =
      suite.find_child_by_attribute("testcase", "name", "Blemish").child_value("system-out");
  EXPECT_NE(blemish.find(" ...\n"), std::string::npos);
  EXPECT_LT(blemish.size(), 2000u) << "a long answer is only in the other reports";
}

// The disk is full: the record says so in words that go with the exit status, and the plan cleans up.
TEST(Plans, AStepThatLosesItsFileSaysSo) {
  const fs::path folder = fs::path(TemporaryFolder()) / "lost";
  const std::string plan = TemporaryFile("plan.json", R"({"steps": [
    {"name": "Kept", "command": "factory-info read", "arguments": {"file": "/dev/full"}, "retries": 2},
    {"command": "ping"}, {"command": "ping", "always": true}]})");
  ScriptedPhone phone({{"1100000000000000", ZERO + Repeat("00", 128)}, PING});
  const ToolResult result = RunTool({"--port", phone.Port(), "--json", "run", plan, "--report", folder});
  EXPECT_EQ(result.status, 7);
  EXPECT_EQ(result.errors, "phonetest: cannot write /dev/full: No space left on device\n");
  EXPECT_EQ(phone.Difference(), "");
  const auto report = nlohmann::json::parse(result.output);
  EXPECT_EQ(report["verdict"], "output lost");
  EXPECT_EQ(report["steps"][0]["verdict"], "output lost");
  EXPECT_EQ(report["steps"][0]["message"], "cannot write /dev/full: No space left on device");
  EXPECT_EQ(report["steps"][2]["verdict"], "passed");
  ExpectRecord(folder / "report.json");
  EXPECT_NE(ReadFile(folder / "report.xml").find("type=\"output\""), std::string::npos);
  EXPECT_NE(ReadFile(folder / "report.xml").find("errors=\"1\""), std::string::npos);

  ScriptedPhone untouched({});
  const ToolResult no_trace = RunTool({"--port", untouched.Port(), "--trace", "/no/trace", "run", plan});
  EXPECT_EQ(no_trace.status, 7);
  EXPECT_NE(no_trace.output.find("OUTPUT LOST: 0 passed, 1 whose file is lost, 2 not run"), std::string::npos)
      << no_trace.output;
  EXPECT_EQ(untouched.Difference(), "");
}

TEST(Plans, APageShowsAPictureOnceAndNoPathThatIsGone) {
  const std::string make =
      R"({"program": ["cp", "/dev/stdin", "${scratch}/a.png"], "picture": "${scratch}/a.png"})";
  const std::string folder = TemporaryFolder() + "/pictures";
  const ToolResult shown = Try({"", Steps(make + "," + make), {"--report", folder}, {}, 0, "passed"});
  const std::string html = ReadFile(folder + "/report.html");
  EXPECT_EQ(html.find("<figure>"), html.rfind("<figure>"));
  EXPECT_NE(html.find("a.png: the same picture as in <a href=\"#step-1\">step 1</a>"), std::string::npos);
  EXPECT_NE(html.find("cp /dev/stdin ${scratch}/a.png (exit status 0)"), std::string::npos);
  for (const std::string& text : {html, ReadFile(folder + "/report.json")})
    EXPECT_FALSE(RE2::PartialMatch(text, "[^}]/a\\.png")) << text;
}

// Every byte, broken UTF-8, and what XML 1.0 forbids.
TEST(Plans, WhateverAProgramPrintsStaysHarmless) {
  const std::string script =
      R"(printf '\\033]0;x\\007\\001\\177\\302\\233\\303(\\357\\277\\277\\355\\240\\200\\377 end'; exit 3)";
  const std::string folder = TemporaryFolder() + "/bytes";
  const std::string plan =
      Steps(R"({"name": "\u001b[31mred", "program": ["sh", "-c", ")" + script + R"("]})");
  const std::string clean = "?]0;x????\xEF\xBF\xBD(?\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD end";
  const ToolResult shown = Try({"a person", plan, {"--report", folder}, {}, 1, clean});
  const ToolResult json =
      Try({"a program", plan, {"--json"}, {}, 1, "\\u001b]0;x\\u0007\\u0001\\u007f\\u009b"});
  EXPECT_NO_THROW(nlohmann::json::parse(json.output));
  const std::string xml = folder + "/report.xml";
  const std::string html = folder + "/report.html";
  for (const std::string& text : {shown.output, json.output, ReadFile(html), ReadFile(xml)}) {
    EXPECT_EQ(text.find_first_of("\x1B\x7F\x07\xFF"), std::string::npos) << text;
    EXPECT_EQ(text.find("\xC2\x9B"), std::string::npos) << text;
  }
  EXPECT_NE(ReadFile(html).find(clean), std::string::npos);
  const ToolResult valid = RunProgram({"xmllint", "--noout", "--schema", JUNIT_SCHEMA, xml});
  EXPECT_EQ(valid.status, 0) << valid.errors;
}

TEST(Plans, PhonesRunAtTheSameTime) {
  // No phone answers its first command before all three have got theirs.
  std::barrier all(3);
  const Turn together = {PING.expected, PING.answer, {}, [&all] { all.arrive_and_wait(); }};
  ScriptedPhone good({together, MOTOR});
  ScriptedPhone bad({together, {MOTOR.expected, "F7D8FFFF"}});
  ScriptedPhone silent({together, {MOTOR.expected, ""}});
  const std::string plan = TemporaryFile(
      "plan.json", Steps(R"({"command": "ping"}, {"if": "", "wait": 0}, {"command": "motor on"})"));
  const fs::path folder = fs::path(TemporaryFolder()) / "many";
  const std::vector<std::string> arguments = {"--port", good.Port(),   "--port",    bad.Port(),
                                              "--port", silent.Port(), "--timeout", "3000",
                                              "run",    plan,          "--report",  folder};
  const ToolResult result = RunTool(arguments);
  EXPECT_EQ(result.status, 3) << result.output << result.errors;  // the graver of device and link failure
  EXPECT_NE(result.output.find("; first: motor on: -9993"), std::string::npos) << result.output;
  const auto summary = nlohmann::json::parse(ReadFile(folder / "summary.json"));
  ASSERT_EQ(summary.size(), 3u);
  EXPECT_EQ(summary[0]["verdict"], "passed");
  EXPECT_EQ(summary[1]["verdict"], "device failure");
  EXPECT_EQ(summary[2]["verdict"], "link failure");
  for (const auto& phone : summary) {
    EXPECT_TRUE(fs::exists(folder / phone["report"])) << phone["report"];
  }
  EXPECT_EQ(good.Difference() + bad.Difference() + silent.Difference(), "");
  EXPECT_EQ(RunTool({"--port", good.Port(), "--port", good.Port(), "run", plan}).status, 2);
}

}  // namespace
