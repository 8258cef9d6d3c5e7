// Ports at servers that speak RFC 2217: a real one, and refusals.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include <nlohmann/json.hpp>

#include "tests/station/background.h"
#include "tests/station/scripted_phone.h"

namespace {

// A loopback address that no other test has, so that the port is free.
std::string OwnAddress() {
  const int process = getpid();
  return "127." + std::to_string(process >> 16 & 255) + "." + std::to_string(process >> 8 & 255) + "." +
         std::to_string(process & 255);
}

// Runs the tool until the server listens.
ToolResult RunWhenListening(const std::vector<std::string>& arguments) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  for (;;) {
    ToolResult result = RunTool(arguments);
    const bool refused = result.errors.find("Connection refused") != std::string::npos;
    if (!refused || std::chrono::steady_clock::now() > until) return result;
    usleep(20'000);
  }
}

TEST(SerialServer, EveryByteSurvivesARealOne) {
  if (RunProgram({"ser2net", "-v"}).status != 0) GTEST_SKIP() << "there is no ser2net";
  constexpr std::size_t SIZE = 60'000;
  std::string all;
  for (int byte = 0; byte < 256; ++byte)
    all += "FF" + std::string(1, "0123456789ABCDEF"[byte / 16]) + "0123456789ABCDEF"[byte % 16];
  ScriptedPhone phone({{"07000000" + all, all}, {"07000000" + Repeat("FF", 4000), Repeat("FF", SIZE)}});
  const std::string address = OwnAddress() + ",7000";
  const std::string configuration =
      TemporaryFile("ser2net.yaml", "connection: &phone\n  accepter: telnet(rfc2217),tcp," + address +
                                        "\n  connector: serialdev," + phone.Port() + ",9600n81,local\n");
  const Background server({"ser2net", "-n", "-u", "-c", configuration});
  const std::string port = "rfc2217:" + OwnAddress() + ":7000";
  const auto received = [](const ToolResult& result) {
    EXPECT_EQ(result.status, 0) << result.errors;
    return nlohmann::json::parse(result.output).value("received", "");
  };
  const ToolResult first =
      RunWhenListening({"--json", "--port", port, "raw", "7", "--request", all, "--answer", "512"});
  EXPECT_EQ(received(first), all);
  const ToolResult second = RunTool({"--json", "--port", port, "raw", "7", "--request", Repeat("FF", 4000),
                                     "--answer", std::to_string(SIZE)});
  EXPECT_TRUE(received(second) == Repeat("FF", SIZE));
  EXPECT_EQ(phone.Difference(), "");
}

TEST(SerialServer, ThatRefusesIsNotUsed) {
  const std::string offer =
      "FFFB2C"
      "FFFB00"
      "FFFB03"
      "FFFD00"
      "FFFD03";
  const std::string agreed =
      "FFFD2C"
      "FFFD00"
      "FFFB00";
  const std::string settings =
      "FFFA2C010001C200FFF0"
      "FFFA2C0208FFF0"
      "FFFA2C0301FFF0"
      "FFFA2C0401FFF0"
      "FFFA2C0501FFF0";
  const std::string others =
      "FFFA2C6608FFF0"
      "FFFA2C6701FFF0"
      "FFFA2C6801FFF0"
      "FFFA2C6901FFF0";
  const std::vector<std::pair<std::vector<Turn>, std::string>> servers = {
      {{{offer, "FFFE2C"}}, "does not let its port be set up"},
      {{{offer, "FFFD2CFFFE00"}}, "refuses binary transfer"},
      {{{.expected = offer, .answer = "5265616C6C7920627573790D0A", .hangs_up = true}},
       "has hung up: Really busy\n"},
      {{{offer, agreed}, {settings, "FFFA2C6500002580FFF0" + others}},
       "does not set 115200 baud; it says 00 00 25 80"},
      // Its own offer of the same is taken.
      {{{offer, agreed + "FFFB2C"}, {"FFFD2C" + settings, "FFFA2C6500002580FFF0" + others}},
       "does not set 115200 baud"},
      // An unknown option is refused, once.
      {{{offer, "FFFB01FFFB01"}, {"FFFE01", ""}}, "does not answer as RFC 2217 has it"},
  };
  for (const auto& [script, message] : servers) {
    ScriptedPhone server(script, ScriptedPhone::Kind::TcpPort);
    const ToolResult result = RunTool({"--port", "rfc2217" + server.Port().substr(3), "ping"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.errors.find(message), std::string::npos) << result.errors;
    EXPECT_EQ(server.Difference(), "") << message;
  }
}

// Nothing is sent while the server has suspended it.
TEST(SerialServer, SuspendsAndResumesWhatIsSent) {
  const std::string suspend = "FFFA2C6CFFF0", resume = "FFFA2C6DFFF0", ping = Repeat("00", 8);
  const Turn offer = {"FFFB2CFFFB00FFFB03FFFD00FFFD03", "FFFD2CFFFD00FFFB00"};
  const Turn settings = {"FFFA2C010001C200FFF0FFFA2C0208FFF0FFFA2C0301FFF0FFFA2C0401FFF0FFFA2C0501FFF0",
                         "FFFA2C650001C200FFF0FFFA2C6608FFF0FFFA2C6701FFF0FFFA2C6801FFF0FFFA2C6901FFF0"};
  const Turn lines = {"FFFA2C0508FFF0FFFA2C050BFFF0FFFA2C0C03FFF0", "FFFA2C7003FFF0" + suspend};
  const auto run = [](ScriptedPhone& server, const std::string& time) {
    return RunTool({"--port", "rfc2217" + server.Port().substr(3), "--timeout", time, "ping"});
  };
  ScriptedPhone stopped({offer, settings, lines}, ScriptedPhone::Kind::TcpPort);
  const ToolResult refused = run(stopped, "300");
  EXPECT_EQ(refused.status, 3);
  EXPECT_NE(refused.errors.find("the server has suspended it"), std::string::npos) << refused.errors;
  EXPECT_EQ(stopped.Difference(), "");

  ScriptedPhone resumed(
      {offer, settings, lines, {"", resume, std::chrono::milliseconds(100)}, {ping, "01000000"}},
      ScriptedPhone::Kind::TcpPort);
  const ToolResult passed = run(resumed, "60000");
  EXPECT_EQ(passed.status, 0) << passed.errors;
  EXPECT_EQ(resumed.Difference(), "");
}

TEST(SerialServer, WhatItSendsWithoutEndIsNotKept) {
  const std::string offer = "FFFB2CFFFB00FFFB03FFFD00FFFD03";
  ScriptedPhone talker({{.expected = offer, .answer = Repeat("78", 1000), .hangs_up = true}},
                       ScriptedPhone::Kind::TcpPort);
  const ToolResult cut = RunTool({"--port", "rfc2217" + talker.Port().substr(3), "ping"});
  EXPECT_EQ(cut.status, 3);
  EXPECT_NE(cut.errors.find("hung up: " + std::string(200, 'x') + "\n"), std::string::npos) << cut.errors;

  // It suspends what is sent, and sends data all the same, also when the tool has gone.
  std::signal(SIGPIPE, SIG_IGN);
  std::vector<Turn> turns = {{offer, "FFFD2CFFFD00FFFB00"},
                             {"FFFA2C010001C200FFF0FFFA2C0208FFF0FFFA2C0301FFF0FFFA2C0401FFF0FFFA2C0501FFF0",
                              "FFFA2C650001C200FFF0FFFA2C6608FFF0FFFA2C6701FFF0FFFA2C6801FFF0FFFA2C6901FFF0"},
                             {"FFFA2C0508FFF0FFFA2C050BFFF0FFFA2C0C03FFF0", "FFFA2C7003FFF0FFFA2C6CFFF0"}};
  for (int i = 0; i < 8; ++i) turns.push_back({"", Repeat("55", 400'000), std::chrono::milliseconds(50)});
  ScriptedPhone flood(turns, ScriptedPhone::Kind::TcpPort);
  const ToolResult ended =
      RunTool({"--port", "rfc2217" + flood.Port().substr(3), "--timeout", "20000", "ping"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_NE(ended.errors.find("sends without end and unasked"), std::string::npos) << ended.errors;
}

// A server that is connected and says nothing.
TEST(SerialServer, ASignalEndsTheWaitForIt) {
  const std::string number = TemporaryFolder() + "/number";
  const auto interrupt = [&] { kill(std::stoi(ReadFile(number)), SIGINT); };
  ScriptedPhone server(
      {{.expected = "FFFB2CFFFB00FFFB03FFFD00FFFD03", .answer = "", .before_answer = interrupt}},
      ScriptedPhone::Kind::TcpPort);
  const std::string plan = TemporaryFile("plan.json", R"({"steps": [{"command": "ping"}]})");
  const ToolResult result =
      RunProgram({"sh", "-c", "echo $$ > " + number + "; exec \"$@\"", "sh", PHONETEST_PROGRAM, "--port",
                  "rfc2217" + server.Port().substr(3), "run", plan});
  EXPECT_EQ(result.status, 6) << result.output << result.errors;
}

}  // namespace
