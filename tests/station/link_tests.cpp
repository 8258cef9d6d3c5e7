// Ports, time-outs and exit statuses.
#include <arpa/inet.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "station/commands/errors.h"
#include "station/link/port_opening.h"
#include "station/link/session.h"
#include "station/link/telnet.h"
#include "tests/station/scripted_phone.h"

namespace {

void ExpectFailure(const ToolResult& result, int status, const std::string& part) {
  EXPECT_EQ(result.status, status);
  EXPECT_NE(result.errors.find(part), std::string::npos) << result.errors;
}

TEST(Link, SilenceAndShortAnswersEndInTime) {
  ScriptedPhone phone({{PING_REQUEST, ""},
                       {PING_REQUEST, "010000"},
                       {PING_REQUEST, "01000000", std::chrono::milliseconds(300)}});
  ExpectFailure(RunTool({"--port", phone.Port(), "--timeout", "200", "ping"}), 3,
                "no answer to ping (code 0x00) within 200 ms");
  const ToolResult shorter = RunTool({"--port", phone.Port(), "--timeout", "1500", "ping", "--json"});
  EXPECT_EQ(shorter.status, 3);
  const auto json = nlohmann::json::parse(shorter.output);
  EXPECT_EQ(json["result"], "link failure");
  EXPECT_EQ(json["failure"], "only 3 of 4 bytes of the answer to ping (code 0x00) came within 1500 ms");
  // The third answer comes late: within the command's own time, but not within 200 ms.
  EXPECT_EQ(RunTool({"--port", phone.Port(), "ping"}).status, 0);
  EXPECT_EQ(phone.Difference(), "");
}

TEST(Link, ACommandThatWaitsHasThatMuchMoreTime) {
  station::Command exchange = station::GetCommand(0x3B);
  exchange.answer_time = std::chrono::milliseconds(1);
  ScriptedPhone phone(
      {{"3B00000041540D" + Repeat("00", 29) + "60EA0000", Repeat("00", 36), std::chrono::milliseconds(300)}});
  station::Link link(phone.Port());
  station::Session session(link);
  EXPECT_EQ(session.Run(exchange, {{"command", "AT\r"}, {"timeout", 60'000}}).size(), 36u);
  EXPECT_EQ(phone.Difference(), "");
}

TEST(Link, WhatCameBeforeACommandIsNotItsAnswer) {
  // The first answer is longer than what is waited for, so its end is still there when the second command
  // starts.
  ScriptedPhone phone({{"01000000", "0A0B0C0D0E0F"}, {PING_REQUEST, "01000000"}});
  EXPECT_EQ(RunTool({"--port", phone.Port(), "raw", "1", "--request", "", "--answer", "2"}).output,
            "0A 0B\n");
  EXPECT_EQ(RunTool({"--port", phone.Port(), "ping"}).status, 0);
  EXPECT_EQ(phone.Difference(), "");
}

TEST(Link, EndsWithThePhone) {
  for (const auto kind : {ScriptedPhone::Kind::SerialPort, ScriptedPhone::Kind::TcpPort}) {
    ScriptedPhone phone({{.expected = PING_REQUEST, .answer = "0100", .hangs_up = true}}, kind);
    ExpectFailure(RunTool({"--port", phone.Port(), "--timeout", "60000", "ping"}), 3, "has hung up");
    EXPECT_EQ(phone.Difference(), "");
  }
}

TEST(Link, AFloodDoesNotHoldTheToolUp) {
  const Terminal phone;
  const ToolResult result = RunTool({"--port", phone.Path(), "--timeout", "1000", "ping"}, "/dev/null",
                                    [&](const ToolResult&) { phone.Flood(std::chrono::milliseconds(100)); });
  EXPECT_NE(result.status, 0) << result.output;
  EXPECT_LT(result.took.count(), 5);
}

TEST(Link, AnEndlessConversationIsNotKeptWhole) {
  constexpr std::size_t SIZE = 1u << 20;
  constexpr std::size_t TURNS = 18;
  ScriptedPhone phone(std::vector<Turn>(TURNS + 3, {"FF", Repeat("55", SIZE)}));
  station::Link link(phone.Port());
  station::Session session(link);
  for (std::size_t i = 0; i < TURNS; ++i) session.RunRaw("flood", {0xFF}, SIZE, std::chrono::seconds(30));
  const station::Transcript transcript = session.TakeTranscript();
  EXPECT_EQ(transcript.count, TURNS);
  EXPECT_EQ(transcript.kept.size(), 15u);
  EXPECT_EQ(session.TakeTranscript().count, 0u);
  for (int i = 0; i < 3; ++i) session.RunRaw("flood", {0xFF}, SIZE, std::chrono::seconds(30));
  EXPECT_EQ(session.TakeTranscript().kept.size(), 3u);
  EXPECT_EQ(phone.Difference(), "");
}

TEST(Link, PortsThatCannotBeUsed) {
  ExpectFailure(RunTool({"--port", "/dev/no-such-port", "ping"}), 3, "there is no port /dev/no-such-port");
  ExpectFailure(RunTool({"--port", "/dev/null", "ping"}), 3, "/dev/null is not a serial port");
  ExpectFailure(RunTool({"--port", "tcp:localhost", "ping"}), 2, "is not tcp:HOST:PORT");
  // Port 1 of the loopback has no listener.
  ExpectFailure(RunTool({"--port", "tcp:127.0.0.1:1", "ping"}), 3, "cannot connect to 127.0.0.1:1");
}

TEST(Link, APortsNameIsCheckedBeforeItIsUsed) {
  for (const char* good :
       {"/dev/ttyACM0", "tcp:host:1", "tcp:host:65535", "tcp:[::1]:telnet", "rfc2217:host:3com-t"})
    EXPECT_NO_THROW(station::CheckPortName(good)) << good;
  for (const char* wrong :
       {"tcp:host:0", "tcp:host:65536", "tcp:host:100000", "tcp:host: 3001", "tcp:host:3001 ", "tcp:host:+1",
        "tcp:host:-1", "tcp:host:", "tcp::1", "tcp:host", "rfc2217:host:0"})
    EXPECT_THROW(station::CheckPortName(wrong), station::UsageError) << wrong;
}

// The command is cut, in pieces of any size, and what follows it is data again.
TEST(Link, ATelnetCommandWithoutEndIsNotKept) {
  using namespace station::telnet;
  for (const std::size_t piece : {1u, 7u, 2000u}) {
    station::Bytes stream = {'a', ESCAPE, SUBNEGOTIATION};
    stream.resize(1003, 'x');
    stream.insert(stream.end(),
                  {ESCAPE, ESCAPE, ESCAPE, SUBNEGOTIATION_END, 'b', ESCAPE, ESCAPE, ESCAPE, WILL, 1, 'c'});
    Decoder decoder;
    std::vector<station::Bytes> commands;
    station::Bytes data;
    for (std::size_t at = 0; at < stream.size(); at += piece) {
      const std::span<std::uint8_t> part = std::span(stream).subspan(at, std::min(piece, stream.size() - at));
      const std::size_t size =
          decoder.Decode(part, [&](const station::Bytes& command) { commands.push_back(command); });
      data.insert(data.end(), part.begin(), part.begin() + static_cast<std::ptrdiff_t>(size));
    }
    EXPECT_EQ(data, (station::Bytes{'a', 'b', ESCAPE, 'c'}));
    ASSERT_EQ(commands.size(), 2u);
    EXPECT_EQ(commands[0].size(), 64u);
    EXPECT_EQ(commands[1], (station::Bytes{WILL, 1}));
  }
}

// A listener whose queue is full does not answer: the connection hangs.
TEST(Link, ASignalEndsAConnectionThatHangs) {
  const posix::FileDescriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const posix::FileDescriptor waiting(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const where = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(bind(listener.Get(), where, size), 0);
  ASSERT_EQ(listen(listener.Get(), 0), 0);
  ASSERT_EQ(getsockname(listener.Get(), where, &size), 0);
  ASSERT_EQ(connect(waiting.Get(), where, size), 0);

  const std::string number = TemporaryFile("number", "");
  const std::string plan =
      TemporaryFile("plan.json", R"({"steps": [{"command": "ping"}, {"command": "ping"}]})");
  const std::string connecting = fmt::format("0100007F:{:04X} 02 ", ntohs(address.sin_port));
  bool sent = false;
  const ToolResult result =
      RunProgram({"sh", "-c", "echo $$ > " + number + "; exec \"$@\"", "sh", PHONETEST_PROGRAM, "--port",
                  fmt::format("tcp:127.0.0.1:{}", ntohs(address.sin_port)), "--json", "run", plan},
                 "/dev/null", [&](const ToolResult&) {
                   if (sent || ReadFile("/proc/net/tcp").find(connecting) == std::string::npos) return;
                   kill(std::stoi(ReadFile(number)), SIGINT);
                   sent = true;
                 });
  EXPECT_TRUE(sent);
  EXPECT_EQ(result.status, 6) << result.output << result.errors;
  const auto report = nlohmann::json::parse(result.output);
  EXPECT_EQ(report["verdict"], "aborted");
  EXPECT_EQ(report["steps"][0]["message"], "ended by Ctrl-C or a signal");
  EXPECT_EQ(report["steps"][1]["verdict"], "skipped");
}

TEST(Link, LeavesThePortRawAndWithoutHangUp) {
  const Terminal port;
  EXPECT_EQ(RunTool({"--port", port.Path(), "no-operation"}).status, 0);
  const termios settings = port.Settings();
  EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ISIG), 0u);
  EXPECT_EQ(settings.c_cflag & (HUPCL | CRTSCTS | CSTOPB | PARENB), 0u);
  EXPECT_EQ(settings.c_cflag & (CLOCAL | CREAD | CSIZE), CLOCAL | CREAD | CS8);
  EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B115200));
}

TEST(Link, UsageErrorsSendNothing) {
  ScriptedPhone phone({});
  const std::vector<std::vector<std::string>> wrong = {
      {"--port", phone.Port()},
      {"ping"},
      {"--port", phone.Port(), "pong"},
      {"--port", phone.Port(), "motor"},
      {"--port", phone.Port(), "led"},
      {"--port", phone.Port(), "led", "blue-ish"},
      {"--port", phone.Port(), "led", ""},
      {"--port", phone.Port(), "led", "0x100000000"},
      {"--port", phone.Port(), "raw", "0", "--request", "012"},
      {"--port", phone.Port(), "raw", "0", "--answer", "70000"},
      {"--port", phone.Port(), "--timeout", "0", "ping"},
      {"--port", phone.Port(), "--port", phone.Port(), "ping"},
  };
  for (const auto& arguments : wrong) EXPECT_EQ(RunTool(arguments).status, 2) << arguments.back();
  EXPECT_EQ(phone.Difference(), "");
  EXPECT_EQ(RunTool({"--help"}).status, 0);
}

TEST(CommandLines, BothProgramsHaveAVersionAndNameThemselves) {
  for (const std::string& program : std::vector<std::string>{PHONETEST_PROGRAM, PHONESIM_PROGRAM}) {
    const std::string name = std::filesystem::path(program).filename();
    const ToolResult version = RunProgram({program, "--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.output, name + " " + VERSION + "\n");
    const ToolResult wrong = RunProgram({program, "--port"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_EQ(wrong.errors.find(name + ": "), 0U) << wrong.errors;
  }
}

}  // namespace
