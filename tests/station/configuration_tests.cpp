// The configuration: which value wins, slots, and mistakes in the file.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "station/commands/errors.h"
#include "station/configuration/slots.h"
#include "tests/station/scripted_phone.h"

namespace {

namespace fs = std::filesystem;

// Runs the tool with the text as the user's file, and variables of the environment.
ToolResult RunWith(const std::string& configuration, std::vector<std::string> variables,
                   const std::vector<std::string>& arguments) {
  fs::create_directories(TemporaryFolder() + "/phonetest");
  TemporaryFile("phonetest/configuration.json", configuration);
  variables.insert(variables.begin(), {"env", "XDG_CONFIG_HOME=" + TemporaryFolder()});
  variables.emplace_back(PHONETEST_PROGRAM);
  variables.insert(variables.end(), arguments.begin(), arguments.end());
  return RunProgram(variables);
}

TEST(Configuration, NamesThePortAndEachStrongerWordWins) {
  ScriptedPhone file({PING}), environment({PING, PING}), option({PING});
  const std::string text = R"({"port": "left", // a comment
    "ports": {"left": ")" + file.Port() +
                           R"(", "right": ")" + environment.Port() + R"("}})";
  EXPECT_EQ(RunWith(text, {}, {"ping"}).status, 0);
  EXPECT_EQ(RunWith(text, {"PHONETEST_PORT=right"}, {"ping"}).status, 0);
  EXPECT_EQ(RunWith(text, {}, {"ping", "--port", "right"}).status, 0);
  EXPECT_EQ(RunWith(text, {"PHONETEST_PORT=right"}, {"ping", "--port", option.Port()}).status, 0);
  for (ScriptedPhone* phone : {&file, &environment, &option}) EXPECT_EQ(phone->Difference(), "");

  const ToolResult unknown = RunWith(text, {}, {"ping", "--port", "middle"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.errors, "phonetest: there is no port or slot \"middle\"; the slots are left, right\n");
  const ToolResult absent =
      RunWith(R"({"ports": {"left": {"serial-number": "none such"}}})", {}, {"ping", "--port", "left"});
  EXPECT_EQ(absent.status, 3);
  EXPECT_NE(absent.errors.find("slot left (USB serial number none such)"), std::string::npos)
      << absent.errors;
}

TEST(Configuration, EachRunHasAFolderForItsReport) {
  ScriptedPhone phone({PING, PING, PING});
  const std::string plan = TemporaryFile("bench.json", PING_PLAN);
  const fs::path reports = TemporaryFolder() + "/reports";
  const std::string text = R"({"station": "bench 7", "operator": "Ann", "reports": ")" + reports.string() +
                           R"(", "port": "left", "ports": {"left": ")" + phone.Port() + R"("}})";
  for (int run = 0; run < 2; ++run)
    EXPECT_EQ(RunWith(text, {"PHONETEST_OPERATOR=Bob"}, {"run", plan}).status, 0);
  std::size_t folders = 0;
  for (const auto& folder : fs::directory_iterator(reports)) {
    const auto report = nlohmann::json::parse(ReadFile(folder.path() / "report.json"));
    EXPECT_EQ(report["station"], "bench 7");
    EXPECT_EQ(report["operator"], "Bob");
    EXPECT_EQ(report["slot"], "left");
    ++folders;
  }
  EXPECT_EQ(folders, 2u);
  const std::string stored = RunWith(text, {}, {"--json", "export", "--at-station", "bench 7"}).output;
  EXPECT_EQ(nlohmann::json::parse(stored.substr(0, stored.find('\n')))["slot"], "left");
  const std::string other = TemporaryFolder() + "/chosen";
  EXPECT_EQ(RunWith(text, {}, {"run", plan, "--report", other, "--station", "X"}).status, 0);
  EXPECT_EQ(nlohmann::json::parse(ReadFile(other + "/report.json"))["station"], "X");
  EXPECT_EQ(phone.Difference(), "");
}

TEST(Configuration, SaysWhereEachValueComesFrom) {
  const std::string text = R"({"station": "bench", "results": "/db", "ports": {"far": "tcp:bench:3001"}})";
  const ToolResult shown = RunWith(text, {"PHONETEST_RESULTS=/other"}, {"configuration", "--json"});
  const auto json = nlohmann::json::parse(shown.output);
  const std::string file = TemporaryFolder() + "/phonetest/configuration.json";
  EXPECT_EQ(json["settings"]["station"], (nlohmann::json{{"value", "bench"}, {"source", file}}));
  EXPECT_EQ(json["settings"]["results"]["source"], "environment PHONETEST_RESULTS");
  EXPECT_EQ(json["slots"][0]["port"], "tcp:bench:3001");
  EXPECT_EQ(json["files"][0], (nlohmann::json{{"path", file}, {"read", true}}));
  EXPECT_NE(RunWith(text, {}, {"configuration"}).output.find(file), std::string::npos);
  // A relative folder counts as none.
  const ToolResult home =
      RunWith(text, {"XDG_CONFIG_HOME=here", "HOME=" + TemporaryFolder()}, {"configuration", "--json"});
  EXPECT_EQ(nlohmann::json::parse(home.output)["files"][0]["path"],
            TemporaryFolder() + "/.config/phonetest/configuration.json");
  EXPECT_NE(RunWith(text, {}, {"ports"}).output.find("tcp:bench:3001    on the network, slot far\n"),
            std::string::npos);
}

TEST(Configuration, AMistakeIsOneSentenceWithItsPlace) {
  const std::vector<std::pair<std::string, std::string>> mistakes = {
      {"{\n  \"station\": bench\n}", "line 2, column 14"},
      {"[]", "must be an object"},
      {R"({"stations": "x"})", "unknown key \"stations\""},
      {R"({"station": 7})", "\"station\" must be a text"},
      {R"({"operator": ""})", "\"operator\" must be a text"},
      {R"({"reports": "out"})", "\"reports\" must be an absolute path"},
      {R"({"ports": []})", "\"ports\" must be an object"},
      {R"({"ports": {"a b": "/dev/x"}})", "\"ports\", \"a b\": a slot's name"},
      {R"({"ports": {"-a": "/dev/x"}})", "does not begin with"},
      {R"({"ports": {"a": "ttyACM0"}})", "\"ports\", \"a\": the port is neither"},
      {R"({"ports": {"a": {}}})", "\"ports\", \"a\": a slot is"},
      {R"({"ports": {"a": {"serial": "1"}}})", "\"ports\", \"a\": unknown key \"serial\""},
      {R"({"ports": {"a": {"usb": 1}}})", "\"ports\", \"a\": \"usb\" must be a text"},
      {R"({"ports": {"a": "/dev/x", "a": "/dev/y"}})", "\"a\" is there twice"},
      {R"({"station": [[[[[1]]]]]})", "nested more than"},
  };
  for (const auto& [text, part] : mistakes) {
    const ToolResult result = RunWith(text, {}, {"ping", "--port", "/dev/null"});
    EXPECT_EQ(result.status, 2) << text;
    EXPECT_NE(result.errors.find("/phonetest/configuration.json: "), std::string::npos) << result.errors;
    EXPECT_NE(result.errors.find(part), std::string::npos) << result.errors;
    EXPECT_EQ(std::ranges::count(result.errors, '\n'), 1) << result.errors;
  }
}

TEST(Configuration, TheUsersSlotReplacesTheSystemsAndUsbSlotsFindTheirPort) {
  const std::string user =
      TemporaryFile("user", R"({"operator": "u", "ports": {"a": {"serial-number": "12345"}}})");
  const std::string system = TemporaryFile(
      "system",
      R"({"operator": "s", "station": "s", "ports": {"a": "/dev/x", "b": {"usb": "1-4.2"}, "c": {"usb": "1-4.2:1.2"}}})");
  const station::Configuration merged = station::LoadConfiguration({user, system, "/no/such/file"});
  EXPECT_EQ(merged.files, (std::vector<std::string>{user, system}));
  EXPECT_EQ(merged.Text("station"), "s");
  EXPECT_EQ(merged.Text("operator"), "u");
  EXPECT_EQ(merged.slots.size(), 3u);
  const station::PortDescription first = {.path = "/dev/ttyACM0",
                                          .usb = true,
                                          .serial_number = "12345",
                                          .usb_socket = "1-4.1",
                                          .usb_interface = "1-4.1:1.0"};
  station::PortDescription second = first, third = first;
  second.path = "/dev/ttyACM1", second.serial_number = "6", second.usb_socket = "1-4.2";
  second.usb_interface = "1-4.2:1.0";
  std::vector<station::PortDescription> ports = {first, second};
  EXPECT_EQ(station::NamedPort("a", merged, ports), "/dev/ttyACM0");
  EXPECT_EQ(station::NamedPort("b", merged, ports), "/dev/ttyACM1");
  EXPECT_THROW(station::NamedPort("c", merged, ports), station::LinkFailure);
  third.path = "/dev/ttyACM2", third.usb_socket = "1-4.2", third.usb_interface = "1-4.2:1.2";
  ports.push_back(third);
  EXPECT_EQ(station::NamedPort("c", merged, ports), "/dev/ttyACM2");
  EXPECT_THROW(station::NamedPort("a", merged, ports), station::LinkFailure);
  station::NameSlots(ports, merged);
  EXPECT_EQ(ports[2].slot, "a, b, c");

  // A port by a link to it, as udev's rule makes them; and one without USB that has a fitting number.
  const std::string link = TemporaryFolder() + "/socket-1";
  fs::create_symlink("/dev/null", link);
  std::vector<station::PortDescription> linked = {{.path = "/dev/null", .serial_number = "12345"}};
  station::NameSlots(
      linked, station::LoadConfiguration({TemporaryFile(
                  "linked", R"({"ports": {"d": ")" + link + R"(", "e": {"serial-number": "12345"}}})")}));
  EXPECT_EQ(linked[0].slot, "d");
}

}  // namespace
