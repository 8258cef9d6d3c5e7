// Every command's exact bytes on the link, and what the tool makes of the answer.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/station/scripted_phone.h"

namespace {

const std::string ZERO = "00000000";
const std::string OPEN_FAILED = "FBD8FFFF";  // -9989

struct Case {
  std::vector<std::string> arguments;
  std::string sent;
  std::string answer;
  int status;
  std::string shown;  // standard output, or a part of standard error where the status is not 0
};

std::string Name(const Case& tried) {
  std::string name;
  for (const std::string& word : tried.arguments) name += word + " ";
  return name;
}

void Try(const Case& tried) {
  SCOPED_TRACE(Name(tried));
  ScriptedPhone phone({{tried.sent, tried.answer}});
  std::vector<std::string> arguments = {"--port", phone.Port(), "--timeout", "2000"};
  arguments.insert(arguments.end(), tried.arguments.begin(), tried.arguments.end());
  const ToolResult result = RunTool(arguments);
  EXPECT_EQ(result.status, tried.status) << result.errors;
  EXPECT_EQ(phone.Difference(), "");
  if (tried.status == 0) {
    EXPECT_EQ(result.output, tried.shown);
  } else {
    EXPECT_NE(result.errors.find(tried.shown), std::string::npos) << result.errors;
  }
}

TEST(Commands, LinkAndDisplay) {
  const std::vector<Case> cases = {
      {{"ping"}, "00000000" + ZERO, "01000000", 0, "ok\n"},
      {{"ping"}, "00000000" + ZERO, "02000000", 1, "answered 2"},
      {{"no-operation"}, "01000000" + ZERO, "", 0, "sent; the phone never answers this command\n"},
      {{"raw", "0x2B", "--request", "01000000 00000000", "--answer", "6"},
       "2B0000000100000000000000",
       "0000000000FF",
       0,
       "00 00 00 00 00 FF\n"},
      {{"raw", "0x12345678", "--request", "", "--answer", "0"},
       "78563412",
       "",
       0,
       "sent; no answer asked for\n"},
      {{"display", "solid", "red"}, "2800000000F8000000F800006400000000000000", ZERO, 0, "ok\n"},
      {{"display", "solid", "0x1234", "--border", "white", "--backlight", "50"},
       "2800000034120000FFFF00003200000000000000",
       ZERO,
       0,
       "ok\n"},
      {{"display", "horizontal-stripes"}, "2800000011110000111100006400000000000000", ZERO, 0, "ok\n"},
      {{"display", "vertical-stripes"}, "2800000022220000222200006400000000000000", ZERO, 0, "ok\n"},
      {{"display", "colour-bars", "--backlight", "0"},
       "2800000033330000333300000000000000000000",
       ZERO,
       0,
       "ok\n"},
      {{"display", "backlight", "7"}, "2800000033330000000000000700000000000000", ZERO, 0, "ok\n"},
      {{"display", "solid", "black"},
       "2800000000000000000000006400000000000000",
       "F9D8FFFF",
       1,
       "-9991 GENERAL_FAILURE: the framebuffer could not be opened"},
      {{"motor", "on"}, "2B0000000100000000000000", ZERO, 0, "ok\n"},
      {{"motor", "off"}, "2B0000000000000000000000", ZERO, 0, "ok\n"},
      {{"led", "4"}, "390000000400000000000000", ZERO, 0, "ok\n"},
      {{"led", "-1"}, "39000000FFFFFFFF00000000", ZERO, 0, "ok\n"},
      {{"led", "off"}, "390000000000000000000000", OPEN_FAILED, 1, "device or file could not be opened"},
      {{"uart-rx", "1"}, "3A0000000100000000000000", ZERO, 0, "ok\n"},
  };
  for (const Case& tried : cases) Try(tried);
}

TEST(Commands, JsonTellsEverything) {
  ScriptedPhone phone({{"00000000" + ZERO, "01000000"}, {"2B0000000100000000000000", OPEN_FAILED}});
  const ToolResult ping = RunTool({"ping", "--json", "--port", phone.Port()});
  const auto passed = nlohmann::json::parse(ping.output);
  EXPECT_EQ(passed["command"], "ping");
  EXPECT_EQ(passed["port"], phone.Port());
  EXPECT_EQ(passed["result"], "passed");
  EXPECT_EQ(passed["sent"], "0000000000000000");
  EXPECT_EQ(passed["received"], "01000000");

  const ToolResult motor = RunTool({"--json", "--port", phone.Port(), "motor", "on"});
  EXPECT_EQ(motor.status, 1);
  const auto failed = nlohmann::json::parse(motor.output);
  EXPECT_EQ(failed["result"], "device failure");
  EXPECT_EQ(failed["failure"], "-9989 OPEN_FAILED: device or file could not be opened");
  EXPECT_EQ(failed["received"], "FBD8FFFF");
}

}  // namespace
