// The test plans of this project on a simulated phone: all pass on a fresh one, and on one with seeded faults
// exactly the steps fail that look at what is broken.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/station/scripted_phone.h"

namespace {

namespace fs = std::filesystem;

// A simulated phone in the background, with the name of this process. It is asked by its name only: a search
// for its port would ask every phone of this user, and those of other tests may hang.
class Phone {
 public:
  explicit Phone(const std::string& suffix = "") : name_("test-" + std::to_string(getpid()) + suffix) {
    const ToolResult started = RunProgram({PHONESIM_PROGRAM, "--name", name_, "--no-waiting", "--ends-with",
                                           std::to_string(getpid()), "start"});
    EXPECT_EQ(started.status, 0) << started.errors;
    const std::string label = "host port: ";
    const std::size_t at = started.output.find(label) + label.size();
    port_ = started.output.substr(at, started.output.find('\n', at) - at);
    program_ = TemporaryFile("phonesim-" + name_, "#!/bin/sh\n[ \"$1 $2\" = \"--port " + port_ +
                                                      "\" ] && shift 2 && exec " PHONESIM_PROGRAM " --name " +
                                                      name_ + " \"$@\"\n");
    fs::permissions(program_, fs::perms::owner_all);
  }
  ~Phone() {
    RunProgram({PHONESIM_PROGRAM, "--name", name_, "stop"});
  }

  const std::string& Name() const {
    return name_;
  }

  const std::string& Port() const {
    return port_;
  }

  // A shell command for one of phonesim's.
  std::string CommandLine(const std::string& command) const {
    return PHONESIM_PROGRAM " --name " + name_ + " " + command;
  }

  // A command of phonesim, such as "card", "remove".
  void Do(const std::vector<std::string>& command) {
    std::vector<std::string> words = {PHONESIM_PROGRAM, "--name", name_};
    words.insert(words.end(), command.begin(), command.end());
    const ToolResult done = RunProgram(words);
    EXPECT_EQ(done.status, 0) << command.front() << ": " << done.errors;
  }

  // As a phone leaves the factory: with an identity.
  void Program() const {
    EXPECT_EQ(RunTool({"--port", port_, "--yes", "identity", "write", "490154203237518"}).status, 0);
  }

  // With `simulated` the plan's steps play the tester too.
  ToolResult Run(const std::string& plan, bool simulated,
                 const std::vector<std::string>& options = {}) const {
    return RunFile(PLANS "/" + plan, simulated, options);
  }
  ToolResult RunFile(const std::string& file, bool simulated, std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"--port", port_, "--yes", "--json", "run", file});
    options.insert(options.end(), {"--answers", "pass"});
    if (simulated) options.insert(options.end(), {"--set", "phonesim=" + program_});
    return RunTool(options);
  }

 private:
  std::string name_;
  std::string port_;
  std::string program_;
};

// The messages of the steps that did not pass, by the steps' names.
std::map<std::string, std::string> Failures(const std::string& report) {
  std::map<std::string, std::string> failures;
  const auto parsed = nlohmann::json::parse(report);
  for (const auto& step : parsed["steps"]) {
    const bool fine =
        step["verdict"] == "passed" || (step["verdict"] == "skipped" && step["message"] == "not asked for");
    if (!fine) failures[step["name"]] = step["message"];
  }
  return failures;
}

std::string Listed(const std::map<std::string, std::string>& failures) {
  std::string list;
  for (const auto& [name, message] : failures) list += name + ": " + message + "\n";
  return list;
}

std::vector<std::string> FactoryOptions() {
  std::vector<std::string> options;
  for (const std::string& value :
       {std::string("identity=490154203237518"), std::string("address=00:11:22:33:44:55"),
        "factory-info=" + TemporaryFile("factory-info", std::string(128, 'F'))}) {
    options.insert(options.end(), {"--set", value});
  }
  return options;
}

TEST(SimulatedPhone, PassesEveryPlan) {
  Phone phone;
  const fs::path folder = fs::path(TemporaryFolder()) / "factory";
  std::vector<std::string> options = FactoryOptions();
  options.insert(options.end(), {"--report", folder});
  const ToolResult factory = phone.Run("factory.json", true, options);
  EXPECT_EQ(factory.status, 0) << Listed(Failures(factory.output)) << factory.errors;
  // Four pictures of the LCD and two of the camera.
  std::size_t pictures = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    pictures += entry.path().extension() == ".png" || entry.path().extension() == ".jpg" ? 1u : 0u;
  }
  EXPECT_EQ(pictures, 6u);

  const ToolResult quick = phone.Run("quick.json", false);
  EXPECT_EQ(quick.status, 0) << Listed(Failures(quick.output)) << quick.errors;
  const ToolResult service = phone.Run("service.json", true);
  EXPECT_EQ(service.status, 0) << Listed(Failures(service.output)) << service.errors;
}

// What is done to a phone, and the steps of a plan that must notice it with a part of what they say.
struct Fault {
  std::vector<std::string> seed;
  std::map<std::string, std::string> noticed;
};

void TryFaults(const std::string& plan, bool simulated, const std::vector<Fault>& faults) {
  Phone phone;
  const bool factory = plan == "factory.json";
  if (!factory) phone.Program();
  std::map<std::string, std::string> wanted;
  for (const Fault& fault : faults) {
    phone.Do(fault.seed);
    wanted.insert(fault.noticed.begin(), fault.noticed.end());
  }
  const ToolResult result =
      phone.Run(plan, simulated, factory ? FactoryOptions() : std::vector<std::string>());
  EXPECT_EQ(result.status, 1) << result.errors;
  std::map<std::string, std::string> failures = Failures(result.output);
  for (const auto& [step, message] : wanted) {
    EXPECT_NE(failures[step].find(message), std::string::npos) << step << ": " << failures[step];
    failures.erase(step);
  }
  EXPECT_EQ(Listed(failures), "") << "failed unexpectedly, with " << plan;
}

TEST(SimulatedPhone, FactoryPlanFindsSeededFaults) {
  const std::string no_display = "the framebuffer could not be opened";
  const std::vector<Fault> faults = {
      {{"missing", "/dev/fb/0"},
       {{"Horizontal stripes", no_display},
        {"Vertical stripes", no_display},
        {"Colour bars", no_display},
        {"White", no_display},
        {"Backlight low", no_display},
        {"Every cross", "the framebuffer could not be opened"},
        {"Display off", no_display}}},
      {{"missing", "/dev/input/event0"}, {{"Every key", "the keypad could not be opened"}}},
      {{"radio", "silence"},
       {{"Radio hears the station", "signal is 1200, below 20000"},
        {"Radio band", "signal is 1200, below 20000"}}},
      {{"camera", "defect", "100", "200", "0xF800"},
       {{"Camera sensor", "the sensor is defective"}, {"Blemish picture", "dark-spots is 1, above 0"}}},
      {{"card", "remove"}, {{"Memory card", "no card (it tells no serial number)"}}},
      {{"modem", "sim", "off"}, {{"SIM", "no SIM, or not ready"}}},
      {{"bluetooth", "not-executable"}, {{"Bluetooth chip", "the Bluetooth test tool could not be run"}}},
      {{"gpio", "modem-state", "0"}, {{"Modem state", "the modem state word is 0"}}},
      {{"fault", "request", "/dev/misc/rtc", "error=EIO", "times=always"},
       {{"Clock is set", "the clock could not be opened, or refused the time"},
        {"Clock reads back", "the clock could not be opened or read"}}},
  };
  TryFaults("factory.json", true, faults);
}

TEST(SimulatedPhone, FactoryPlanProgramsNoIdentityAfterAFailedWrite) {
  Phone phone;
  phone.Do({"partition-hide", "Factory Info"});
  const ToolResult result = phone.Run("factory.json", true, FactoryOptions());
  EXPECT_EQ(result.status, 1) << result.errors;
  std::map<std::string, std::string> failures = Failures(result.output);
  const std::string& written = failures["Factory information is written"];
  EXPECT_NE(written.find("the partition \"Factory Info\" is missing"), std::string::npos) << written;
  EXPECT_EQ(failures["Identity is programmed"], "not run: the plan has ended");
}

TEST(SimulatedPhone, PlansRefuseAPhoneWithoutAnIdentity) {
  Phone phone;
  for (const bool service : {false, true}) {
    const ToolResult result = phone.Run(service ? "service.json" : "quick.json", service);
    EXPECT_EQ(result.status, 1) << result.errors;
    const std::string wrong = "identity is 000000011234564, which is refused\n";
    EXPECT_EQ(Listed(Failures(result.output)),
              (service ? "Identity: " : "The identity has 15 digits: ") + wrong);
  }
}

TEST(SimulatedPhone, ServiceAndQuickPlanFindSeededFaults) {
  TryFaults(
      "service.json", true,
      {{{"missing", "/dev/touchscreen/tsc2046"}, {{"All crosses touched", "-9889 TOUCH_NOT_OPENED"}}},
       {{"missing", "/dev/misc/omap730_gpio"}, {{"Modem state", "the GPIO device could not be opened"}}},
       {{"missing", "/dev/v4l2/capture0"},
        {{"Camera sensor", "the camera could not be opened"},
         {"Blemish picture", "the camera could not be opened"},
         {"Focus picture", "the camera could not be opened"}}},
       {{"card", "read-only"}, {{"Memory card", "the test file on it could not be opened"}}}});
  const std::string silence = "no \"OK\" or \"ERROR\" came";
  TryFaults("quick.json", false,
            {{{"missing", "/etc/version"},
              {{"System version", "version is empty instead of a version like R1.2"},
               {"All three versions are there", "system is empty instead of a version like R1.2"}}},
             {{"modem", "silent", "on"},
              {{"Modem answers", silence},
               {"Modem receives", silence},
               {"Modem's serial number", silence},
               {"SIM", silence}}},
             {{"bluetooth", "2", "none"}, {{"Bluetooth chip", "printed no status"}}}});
}

// The camera steps of the factory plan alone, with what stands before the camera.
std::string CameraPlan(const std::string& card, const std::string& scene) {
  std::ifstream file(PLANS "/factory.json");
  nlohmann::json plan = nlohmann::json::parse(file, nullptr, true, true);
  nlohmann::json steps = nlohmann::json::array();
  for (nlohmann::json& step : plan["steps"]) {
    if (step.value("command", "") == "camera capture") steps.push_back(step);
    const bool holds = step["name"].get<std::string>().ends_with("before the camera");
    if (!holds) continue;
    step["program"].push_back(step["program"].back() == "card" ? card : scene);
    steps.push_back(step);
  }
  EXPECT_EQ(steps.size(), 4u);
  plan["steps"] = steps;
  plan["variables"] = {{"phonesim", {{"default", ""}}}};
  return TemporaryFile("camera.json", plan.dump());
}

TEST(SimulatedPhone, PlansJudgePicturesByLimits) {
  Phone phone;
  const auto failures = [&](const std::string& card, const std::string& scene) {
    return Listed(Failures(phone.RunFile(CameraPlan(card, scene), true).output));
  };
  for (const char* seed : {"1", "2", "77", "4000000000"}) EXPECT_EQ(failures(seed, seed), "") << seed;

  struct Case {
    std::vector<std::string> defect;
    std::string found;  // how what is said begins
  };
  const Case cases[] = {
      {{"dust", "1", "1"}, "Blemish picture: dark-spots is 1, above 0\n"},
      {{"dust", "5", "9"}, "Blemish picture: dark-spots is 5, above 0\n"},
      {{"defect", "600", "800", "0"}, "Blemish picture: dark-spots is 1, above 0\n"},
      {{"defect", "1190", "9", "0xFFFF"}, "Blemish picture: bright-spots is 1, above 0\n"},
      {{"row", "1599"}, "Blemish picture: dead-lines is 1, above 0\n"},
      {{"row", "64", "0xFFFF"}, "Blemish picture: dead-lines is 1, above 0\n"},
      {{"shading", "20"}, "Blemish picture: shading is "},
      {{"tint", "115", "100", "100"}, "Blemish picture: red-balance is "},
      {{"tint", "100", "100", "85"}, "Blemish picture: blue-balance is "},
      {{"blur", "1"}, "Focus picture: sharpness-bottom-left is "},
  };
  for (const Case& one : cases) {
    phone.Do({"camera", "good"});
    std::vector<std::string> words = {"camera"};
    words.insert(words.end(), one.defect.begin(), one.defect.end());
    phone.Do(words);
    const std::string found = failures("3", "3");
    EXPECT_EQ(found.substr(0, one.found.size()), one.found) << words[1];
    EXPECT_EQ(std::ranges::count(found, '\n'), 1) << found;
  }
}

TEST(SimulatedPhone, ThreePhonesRunThePlanAtTheSameTime) {
  Phone left("-left");
  Phone middle("-middle");
  Phone right("-right");
  for (const Phone* phone : {&left, &middle, &right}) phone->Program();
  middle.Do({"card", "remove"});
  const ToolResult result = RunTool({"--port", left.Port(), "--port", middle.Port(), "--port", right.Port(),
                                     "--yes", "--json", "run", PLANS "/quick.json"});
  EXPECT_EQ(result.status, 1) << result.errors;
  std::vector<std::string> verdicts;
  for (const auto& phone : nlohmann::json::parse(result.output)) {
    verdicts.push_back(phone["verdict"]);
    // Which executable was tested.
    const auto& executable = phone["executable"];
    EXPECT_EQ(fs::path(executable["path"].get<std::string>()).filename(), "phonetestd");
    EXPECT_EQ(executable["processor"], "x86-64");
    const ToolResult sum = RunProgram({"sha256sum", executable["path"]});
    EXPECT_EQ(sum.output.substr(0, sum.output.find(' ')), executable["sha256"]);
  }
  EXPECT_EQ(verdicts, (std::vector<std::string>{"passed", "device failure", "passed"}));
}

// Its plan goes on after failures, but not if the port has hung up. What must always run is tried, and
// nothing is left.
TEST(SimulatedPhone, ADeadPhoneEndsItsOwnPlan) {
  Phone other("-other");
  const auto end_process = [](const Phone& phone, const std::string& label) {
    // The status tells of every phone of this user.
    const std::string number =
        " | sed -n 's/^" + phone.Name() + ": .*" + label + " process \\([0-9]*\\).*/\\1/p'";
    return "kill -9 $(" + phone.CommandLine("status") + number + ")";
  };
  const struct {
    std::string way;
    bool is_killed;
    bool hangs_up;
  } cases[] = {
      {"stop", false, true}, {"simulator", true, true}, {"unplug", false, false}, {"server", true, true}};
  for (const auto& [way, is_killed, hangs_up] : cases) {
    SCOPED_TRACE(way);
    Phone dying("-dying");
    const std::string death = is_killed ? end_process(dying, way) : dying.CommandLine(way);
    const std::string notes = TemporaryFile("notes", "");
    const std::string always = TemporaryFile("always", "");
    const auto on_dying = [&](const std::string& script) {
      const nlohmann::json words = {"sh", "-c", "[ ${port} != " + dying.Port() + " ] || { " + script + "; }"};
      return "{\"program\": " + words.dump();
    };
    const std::string plan = TemporaryFile(
        "plan.json", R"({"on-failure": "continue", "steps": [)" +
                         on_dying("echo $$ ${scratch} > " + notes + "; exec sleep 300") +
                         R"(, "background": true, "seconds": 0.1},)" + on_dying(death) +
                         R"(}, {"command": "ping")" +
                         (hangs_up ? R"(, "retries": 9, "retry-wait": 300)" : "") +
                         R"(}, {"question": "Is it well?"}, {"command": "motor off", "always": true},)" +
                         on_dying("echo done > " + always) + R"(, "always": true}]})");
    const std::string folder = TemporaryFolder() + "/dead-" + way;
    const ToolResult result = RunTool({"--port", dying.Port(), "--port", other.Port(), "--json", "run", plan,
                                       "--answers", "pass", "--report", folder});
    EXPECT_EQ(result.status, 3) << result.errors;
    const auto records = nlohmann::json::parse(result.output);
    EXPECT_EQ(records[0]["verdict"], "link failure");
    EXPECT_EQ(records[1]["verdict"], "passed") << records[1];
    std::vector<std::string> verdicts;
    for (const auto& step : records[0]["steps"]) verdicts.push_back(step["verdict"]);
    EXPECT_EQ(verdicts, (std::vector<std::string>{"device failure", "passed", "link failure",
                                                  hangs_up ? "skipped" : "passed", "link failure", "passed"}))
        << records[0]["steps"];
    EXPECT_EQ(ReadFile(always), "done\n");
    std::istringstream noted(ReadFile(notes));
    std::string child;
    std::string scratch;
    noted >> child >> scratch;
    EXPECT_FALSE(fs::exists("/proc/" + child));
    EXPECT_FALSE(fs::exists(scratch)) << scratch;
    std::string name = dying.Port().substr(5);
    std::ranges::replace(name, '/', '-');
    EXPECT_NE(ReadFile(folder + "/" + name + "/report.json").find("\"link failure\""), std::string::npos);
  }
}

TEST(SimulatedPhone, CampaignFindsThePlansHoles) {
  const std::string plan = TemporaryFile("card.json", R"({"name": "Card", "on-failure": "continue", "steps": [
      {"name": "Card", "command": "memory-card"}, {"name": "Clock", "command": "clock get"}]})");
  const std::string report = TemporaryFolder() + "/campaign";
  const auto campaign = [&](std::vector<std::string> options) {
    options.insert(options.begin(), {"--json", "campaign", plan, "--report", report, "--jobs", "3"});
    return RunTool(options);
  };
  const ToolResult first = campaign({"--only", "c[al]*"});
  EXPECT_EQ(first.status, 1) << first.errors;
  const auto results = nlohmann::json::parse(first.output);
  std::map<std::string, std::string> steps;
  for (const auto& fault : results["faults"]) {
    steps[fault["fault"]] = fault["steps"].empty() ? "" : fault["steps"][0]["name"];
  }
  EXPECT_EQ(steps["card remove"], "Card");
  EXPECT_EQ(steps["clock stop"], "");
  EXPECT_EQ(steps["camera blur 1"], "");

  // It goes on with the clock's driver requests alone, and a stopped clock is explained now.
  TemporaryFile("card.unseen",
                R"({"clock *": "The plan reads the clock once.", "camera *": "No step uses it."})");
  const ToolResult second = campaign({"--only", "*c*", "--list"});
  EXPECT_NE(second.output.find("request /dev/misc/rtc 0x80247009 EIO\n"), std::string::npos) << second.output;
  const ToolResult third = campaign({"--resume", "--only", "*c[al]*[ek]*"});
  const auto resumed = nlohmann::json::parse(third.output);
  EXPECT_GT(resumed["explained"], 8) << third.output;
  EXPECT_EQ(resumed["faults"][0].value("seconds", 0.0), results["faults"][0].value("seconds", 1.0))
      << "what was tried before is not tried again";
  EXPECT_NE(ReadFile(report + "/campaign.html").find("The plan reads the clock once."), std::string::npos);

  // A plan that takes too long on a phone with a fault is ended.
  TemporaryFile("card.json", R"({"steps": [
      {"name": "Card", "command": "memory-card", "retries": 1, "retry-wait": 300}]})");
  const ToolResult late = campaign({"--only", "card remove", "--time-limit", "1"});
  EXPECT_LT(late.took.count(), 200);
  const auto fault = nlohmann::json::parse(late.output)["faults"][0];
  EXPECT_EQ(fault["steps"][0]["verdict"], "LATE") << late.output;
}

TEST(SimulatedPhone, GivesTheSameAnswersToAReplay) {
  const std::string trace = TemporaryFile("trace", "");
  const std::string plan = TemporaryFile("plan.json", R"({"steps": [
      {"command": "versions"}, {"command": "factory-info read"}, {"command": "modem-image fetch",
       "arguments": {"output": "${scratch}/image"}}, {"command": "radio measure", "arguments": {"frequency": 98.5}}]})");
  Phone phone;
  EXPECT_EQ(RunTool({"--port", phone.Port(), "--trace", trace, "run", plan}).status, 0);
  const ToolResult same = RunTool({"--port", phone.Port(), "replay", trace});
  EXPECT_EQ(same.status, 0) << same.errors;
  phone.Do({"radio", "silence"});
  const ToolResult different = RunTool({"--port", phone.Port(), "replay", trace});
  EXPECT_EQ(different.status, 1);
  EXPECT_NE(different.errors.find("FM radio (code 0x2C): answer byte 9"), std::string::npos)
      << different.errors;
  EXPECT_NE(different.errors.find("field \"signal\" (signal strength), bytes 8 to 11: was 46000, now 1200\n"),
            std::string::npos)
      << different.errors;
}

}  // namespace
