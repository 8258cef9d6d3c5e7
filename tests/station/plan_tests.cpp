// Test plans: verdicts, exit statuses, reports, several phones at once.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/station/scripted_phone.h"

namespace {

namespace fs = std::filesystem;

const std::string ZERO = "00000000";
const Turn PING = {"0000000000000000", "01000000"};
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

void Try(const PlanCase& tried) {
  SCOPED_TRACE(tried.about);
  ScriptedPhone phone(tried.phone);
  std::vector<std::string> arguments = {"--port", phone.Port(), "--timeout",
                                        "500",    "run",        TemporaryFile("plan.json", tried.plan)};
  arguments.insert(arguments.end(), tried.options.begin(), tried.options.end());
  const ToolResult result = RunTool(arguments);
  EXPECT_EQ(result.status, tried.status) << result.output << result.errors;
  EXPECT_NE((result.output + result.errors).find(tried.shown), std::string::npos)
      << result.output << result.errors;
  EXPECT_EQ(phone.Difference(), "");
}

std::string Steps(const std::string& steps) {
  return "{\"steps\": [" + steps + "]}";
}

TEST(Plans, Verdicts) {
  const Turn radio = {"2C0000000100000028060000008000000000000000000000", ZERO + "28060000" + "00A00000"};
  const std::string measure =
      R"({"command": "radio measure", "arguments": {"frequency": "0x628"}, "limits": )";
  const Turn version = {"0A00000000000000", ZERO + "52312E32" + Repeat("00", 124)};
  const std::string system = R"({"command": "version system", "limits": {"version": )";
  const Turn blank_check = {"4700000000000000", "FAD8FFFF"};
  const std::vector<PlanCase> cases = {
      {"comments, passing",
       Steps("// a comment\n{\"command\": \"ping\"}"),
       {},
       {PING},
       0,
       "passed: 1 passed"},
      {"limits kept",
       Steps(measure + R"({"signal": {"minimum": 40960, "maximum": 40960},
                           "frequency": {"mask": "0xFF", "equals": "0x28"}}})"),
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
       "frequency is 1576 where 1 is wanted"},
      {"mask",
       Steps(measure + R"({"frequency": {"mask": 255, "equals": 41}}})"),
       {},
       {radio},
       1,
       "under mask 0xFF it is 0x28 where 41 is wanted"},
      {"pattern kept", Steps(system + R"({"pattern": "^R1\\."}}})"), {}, {version}, 0, "passed"},
      {"pattern broken",
       Steps(system + R"({"pattern": "^R2"}}})"),
       {},
       {version},
       1,
       "which does not match ^R2"},
      {"a limit on what is not read",
       Steps(system + R"({"equals": "R1.2"}, "build": {"equals": 7}}})"),
       {},
       {version},
       4,
       "the answer holds no \"build\""},
      {"a failure that is wanted",
       Steps(R"({"command": "identity check-blank", "limits": {"status": {"equals": -9990}}})"),
       {},
       {blank_check},
       0,
       "passed"},
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
      {"tries again",
       Steps(R"({"command": "memory-card", "retries": 2, "retry-wait": 0.01})"),
       {},
       {NO_CARD, {"2600000000000000", ZERO}},
       0,
       "in 2 attempts"},
      {"repeats", Steps(R"({"command": "ping", "repeat": 3})"), {}, {PING, PING, PING}, 0, "passed"},
      {"silence",
       Steps(R"({"command": "ping"}, {"command": "ping"})"),
       {},
       {{PING.expected, ""}},
       3,
       "no answer to ping (code 0x00) within 500 ms"},
      {"variables",
       R"({"variables": {"level": {"default": 3}, "card": {"default": ""}}, "steps": [
            {"command": "led", "arguments": {"colour": "${level}"}},
            {"command": "memory-card", "if": "${card}"}]})",
       {"--set", "level=5"},
       {{"390000000500000000000000", ZERO}},
       0,
       "passed: 1 passed, 1 not run"},
      {"an answered question",
       Steps(R"({"question": "Does it shine?"})"),
       {"--yes"},
       {},
       0,
       "Does it shine?"},
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
       "no picture"},
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

TEST(Plans, MistakesAreFoundBeforeAnythingIsSent) {
  const std::string ping = R"({"command": "ping"}, )";
  const std::vector<PlanCase> cases = {
      {"syntax", "{\"steps\": [\n{\"command\": }]}", {}, {}, 4, "line 2, column 13"},
      {"no steps", "{}", {}, {}, 4, "a plan has \"steps\""},
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
       "step 2 \"x\": a step has a"},
      {"misplaced key", Steps(R"({"wait": 1, "limits": {}})"), {}, {}, 4, "there is no \"limits\" here"},
      {"unknown argument",
       Steps(R"({"command": "led", "arguments": {"color": 1}})"),
       {},
       {},
       4,
       "no argument \"color\""},
      {"missing argument", Steps(R"({"command": "led"})"), {}, {}, 4, "colour is missing"},
      {"bad argument",
       Steps(R"({"command": "led", "arguments": {"colour": "x"}})"),
       {},
       {},
       4,
       "'x' is not a number"},
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
      {"a terminal's command", Steps(R"({"command": "modem pass-through"})"), {}, {}, 4, "needs a person"},
      {"a wrong option", Steps(R"({"command": "ping"})"), {"--set", "id"}, {}, 2, "not NAME=VALUE"},
  };
  for (const PlanCase& tried : cases) Try(tried);
  EXPECT_EQ(RunTool({"--port", "/dev/null", "run", "/no/such/plan"}).status, 4);
}

// Types the line at the terminal until the tool has ended: what comes before a question is no answer to it.
ToolResult RunToolAtTerminal(const std::vector<std::string>& arguments, const std::string& line) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_EQ(grantpt(terminal), 0);
  EXPECT_EQ(unlockpt(terminal), 0);
  const std::string path = ptsname(terminal);
  const int other_side = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  std::atomic<bool> ended = false;
  std::thread typist([&] {
    while (!ended) {
      EXPECT_EQ(write(terminal, line.data(), line.size()), static_cast<ssize_t>(line.size()));
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  });
  ToolResult result = RunTool(arguments, path);
  ended = true;
  typist.join();
  close(other_side);
  close(terminal);
  return result;
}

TEST(Plans, TheOperatorIsAsked) {
  const std::string plan = TemporaryFile("plan.json", Steps(R"({"question": "Does it shine?"})"));
  ScriptedPhone phone({Turn{"0200000000000000", ""}});
  const ToolResult no = RunToolAtTerminal({"--port", phone.Port(), "run", plan}, "n\n");
  EXPECT_EQ(no.status, 1);
  EXPECT_NE(no.errors.find(phone.Port() + ": Does it shine? [Y/n]"), std::string::npos) << no.errors;
  EXPECT_NE(no.output.find("the operator says no"), std::string::npos) << no.output;
  EXPECT_EQ(RunToolAtTerminal({"--port", phone.Port(), "run", plan}, "\n").status, 0);

  const ToolResult kept = RunToolAtTerminal({"--port", phone.Port(), "power-off"}, "\n");
  EXPECT_EQ(kept.status, 2);
  EXPECT_NE(kept.errors.find("Power the phone off? [y/N]"), std::string::npos) << kept.errors;
  EXPECT_EQ(RunToolAtTerminal({"--port", phone.Port(), "power-off"}, "y\n").status, 0);
  EXPECT_EQ(phone.Difference(), "");
}

// A whole small JPEG file by structure.
std::string Picture() {
  return "FFD8"
         "FFC0000B080008000801011100"
         "FFDA0008010100003F00"
         "5555"
         "FFD9";
}

TEST(Plans, ReportsHoldEverything) {
  const std::string picture = Picture();
  const std::size_t size = picture.size() / 2;
  const std::string count =
      std::string{"0123456789ABCDEF"[size / 16], "0123456789ABCDEF"[size % 16]} + "000000";
  ScriptedPhone phone({PING,
                       {"240000000A000000080000000800000000000000", ZERO},
                       {"410000000F000000", ZERO + Repeat("00", 1024)},
                       {"410000000E000000", count + picture + Repeat("00", 1024 - size)},
                       {"240000000C000000" + Repeat("00", 12), ZERO},
                       NO_CARD});
  const std::string plan = TemporaryFile("plan.json", R"({
    "name": "A <small> plan & \"more\"",
    "variables": {"identity": {}},
    "steps": [
      {"name": "Server\u0001", "command": "ping"},
      {"name": "Blemish", "command": "camera capture", "arguments": {"picture": "blemish", "size": "8x8"}},
      {"name": "Card", "command": "memory-card"},
      {"name": "Never", "command": "ping"}]})");
  const fs::path folder = fs::path(testing::TempDir()) / ("phonetest-report-" + std::to_string(getpid()));
  const ToolResult result =
      RunTool({"--port", phone.Port(), "run", plan, "--set", "identity=123", "--report", folder, "--json"});
  EXPECT_EQ(result.status, 1) << result.errors;
  EXPECT_EQ(phone.Difference(), "");

  const auto report = nlohmann::json::parse(ReadFile(folder / "report.json"));
  EXPECT_EQ(report, nlohmann::json::parse(result.output));
  EXPECT_EQ(report["verdict"], "device failure");
  EXPECT_EQ(report["variables"]["identity"], "123");
  EXPECT_EQ(report["steps"][0]["exchanges"][0]["sent"], "0000000000000000");
  EXPECT_EQ(report["steps"][1]["exchanges"].size(), 4u);
  EXPECT_EQ(report["steps"][1]["readings"]["width"], 8);
  EXPECT_EQ(report["steps"][1]["pictures"][0], "02-blemish.jpg");
  EXPECT_EQ(report["steps"][2]["message"], "-9995 NO_CARD_SERIAL_NUMBER: no card: its serial number is 0");
  EXPECT_EQ(report["steps"][3]["verdict"], "skipped");
  EXPECT_EQ(ReadFile(folder / "02-blemish.jpg").size(), size);

  const std::string html = ReadFile(folder / "report.html");
  EXPECT_NE(html.find("A &lt;small&gt; plan &amp; &quot;more&quot;"), std::string::npos);
  EXPECT_NE(html.find("src=\"data:image/jpeg;base64,/9j/wAALCAAIAAgBAREA"), std::string::npos);
  EXPECT_NE(html.find("&lt; F5 D8 FF FF"), std::string::npos);
  for (const char* outside : {"http:", "https:", "src=\"/", "@import"})
    EXPECT_EQ(html.find(outside), std::string::npos);

  const ToolResult valid =
      RunProgram({"xmllint", "--noout", "--schema", JUNIT_SCHEMA, folder / "report.xml"});
  EXPECT_EQ(valid.status, 0) << valid.errors;
  EXPECT_NE(ReadFile(folder / "report.xml").find("tests=\"4\" failures=\"1\" errors=\"0\" skipped=\"1\""),
            std::string::npos);
  fs::remove_all(folder);
}

TEST(Plans, PhonesRunAtTheSameTime) {
  // No phone answers its first command before all three have got theirs.
  std::barrier all(3);
  const Turn together = {PING.expected, PING.answer, {}, [&all] { all.arrive_and_wait(); }};
  ScriptedPhone good({together, MOTOR});
  ScriptedPhone bad({together, {MOTOR.expected, "F7D8FFFF"}});
  ScriptedPhone silent({together, {MOTOR.expected, ""}});
  const std::string plan =
      TemporaryFile("plan.json", Steps(R"({"command": "ping"}, {"command": "motor on"})"));
  const fs::path folder = fs::path(testing::TempDir()) / ("phonetest-many-" + std::to_string(getpid()));
  const std::vector<std::string> arguments = {"--port", good.Port(),   "--port",    bad.Port(),
                                              "--port", silent.Port(), "--timeout", "2000",
                                              "run",    plan,          "--report",  folder};
  const ToolResult result = RunTool(arguments);
  EXPECT_EQ(result.status, 3) << result.output << result.errors;  // the graver of device and link failure
  const auto summary = nlohmann::json::parse(ReadFile(folder / "summary.json"));
  ASSERT_EQ(summary.size(), 3u);
  EXPECT_EQ(summary[0]["verdict"], "passed");
  EXPECT_EQ(summary[1]["verdict"], "device failure");
  EXPECT_EQ(summary[2]["verdict"], "link failure");
  for (const auto& phone : summary) {
    EXPECT_TRUE(fs::exists(folder / phone["report"])) << phone["report"];
  }
  fs::remove_all(folder);
  EXPECT_EQ(good.Difference() + bad.Difference() + silent.Difference(), "");
  EXPECT_EQ(RunTool({"--port", good.Port(), "--port", good.Port(), "run", plan}).status, 2);
}

}  // namespace
