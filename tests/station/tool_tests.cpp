// Traces and replays, TCP ports, the list of ports, held ports, and the generated documents.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <tuple>

#include "station/commands/errors.h"
#include "station/link/port_list.h"
#include "station/tasks/operation.h"
#include "tests/station/background.h"
#include "tests/station/scripted_phone.h"

namespace {

namespace fs = std::filesystem;

const Turn NOTHING = {"0100000000000000", ""};
const Turn KEY = {"2700000000000000", "00110000"};

std::string Record(const std::string& name) {
  const std::string file = TemporaryFile(name, "");
  const std::string plan =
      TemporaryFile("plan.json", R"({"steps": [{"command": "ping"}, {"command": "no-operation"},
                                                                   {"wait": 0.2}, {"command": "key poll"}]})");
  ScriptedPhone phone({PING, NOTHING, KEY});
  EXPECT_EQ(RunTool({"--port", phone.Port(), "--trace", file, "run", plan}).status, 0);
  EXPECT_EQ(phone.Difference(), "");
  return file;
}

TEST(Traces, AreReplayedAndCompared) {
  const std::string trace = Record("trace");
  const std::string text = ReadFile(trace);
  for (const char* part : {"> 00 00 00 00 00 00 00 00\n", "< 01 00 00 00\n", "# poll keypad (code 0x27)\n"}) {
    EXPECT_NE(text.find(part), std::string::npos) << text;
  }

  ScriptedPhone same({PING, NOTHING, KEY});
  const ToolResult equal = RunTool({"--port", same.Port(), "replay", trace});
  EXPECT_EQ(equal.status, 0) << equal.errors;
  EXPECT_EQ(equal.output, "24 bytes sent, 8 bytes received: no difference\n");
  EXPECT_EQ(same.Difference(), "");

  ScriptedPhone other({PING, NOTHING, {KEY.expected, "00120000"}});
  const ToolResult different = RunTool({"--port", other.Port(), "replay", trace});
  EXPECT_EQ(different.status, 1);
  EXPECT_NE(different.errors.find("poll keypad (code 0x27): answer byte 1 was 11, now 12 came"),
            std::string::npos)
      << different.errors;

  // A field that time changes is left out by the command's words or by its name in the trace, and no other
  // is.
  const std::string clock = TemporaryFile("clock-plan.json", R"({"steps": [{"command": "clock get"}]})");
  const std::string times = TemporaryFile("clock-trace", "");
  const auto read = [](const std::string& status, const std::string& hour) {
    return Turn{"2E00000000000000", status +
                                        "D6070000"
                                        "01000000"
                                        "0F000000" +
                                        hour + Repeat("00", 16)};
  };
  ScriptedPhone recorded({read("00000000", "08000000")});
  EXPECT_EQ(RunTool({"--port", recorded.Port(), "--trace", times, "run", clock}).status, 0);
  const auto replay = [&](const Turn& turn, const std::string& ignored) {
    ScriptedPhone phone({turn});
    return RunTool({"--port", phone.Port(), "replay", times, "--ignore", ignored});
  };
  for (const char* field : {"clock get.time", "clock get", "read clock.time"})
    EXPECT_EQ(replay(read("00000000", "09000000"), field).status, 0) << field;
  EXPECT_EQ(replay(read("00000000", "09000000"), "clock get.status").status, 1);
  EXPECT_EQ(replay(read("F0D8FFFF", "09000000"), "clock get.time").status, 1);
  const ToolResult unknown = replay(read("00000000", "09000000"), "clock get.tim");
  EXPECT_EQ(unknown.status, 2);
  EXPECT_NE(unknown.errors.find("has no field \"tim\"; did you mean time?"), std::string::npos)
      << unknown.errors;

  ScriptedPhone shorter({PING, NOTHING, {KEY.expected, "0011"}});
  const ToolResult cut = RunTool({"--port", shorter.Port(), "--timeout", "1000", "replay", trace});
  EXPECT_EQ(cut.status, 1);
  EXPECT_NE(cut.errors.find("answer byte 2 was 00, now nothing more came\n  field \"key\""),
            std::string::npos)
      << cut.errors;
  EXPECT_NE(cut.errors.find(", now 2 of 4 bytes came\n"), std::string::npos) << cut.errors;

  ScriptedPhone longer({PING, {NOTHING.expected, "AA"}});
  const ToolResult more = RunTool({"--port", longer.Port(), "replay", trace});
  EXPECT_EQ(more.status, 1);
  EXPECT_NE(more.errors.find("after no operation (code 0x01): 1 bytes more came than was recorded"),
            std::string::npos)
      << more.errors;
  ScriptedPhone later({PING, NOTHING, {KEY.expected, "00110000FF"}});
  const ToolResult last = RunTool({"--port", later.Port(), "--json", "replay", trace});
  EXPECT_EQ(last.status, 1) << "what comes after the last answer counts too";
  EXPECT_EQ(nlohmann::json::parse(last.output)["command"], "poll keypad");

  for (const std::string& none : {TemporaryFile("none", "nothing\n"), std::string("/dev/zero")})
    EXPECT_EQ(RunTool({"--port", same.Port(), "replay", none}).status, 2);
}

// Words, the lost output's name and reason, and whether the phone is still asked.
TEST(LostOutput, IsTheExitStatusAndASentence) {
  const std::string plan = TemporaryFile("plan.json", R"({"steps": [{"command": "ping"}]})");
  const std::string full = ": No space left on device\n";
  const struct {
    std::vector<std::string> words;
    bool to_full;
    bool asks;
    std::string told;
  } cases[] = {
      {{"commands"}, true, false, "standard output" + full},
      {{"--help"}, true, false, "standard output" + full},
      {{"ping"}, true, true, "standard output" + full},
      {{"--json", "ping"}, true, true, "standard output" + full},
      {{"run", plan}, true, true, "standard output" + full},
      {{"--trace", "/dev/full", "ping"}, false, true, "the trace /dev/full" + full},
      {{"--trace", "/no/trace", "run", plan},
       false,
       false,
       "the trace /no/trace: No such file or directory\n"},
  };
  for (const auto& tried : cases) {
    ScriptedPhone phone(tried.asks ? std::vector<Turn>{PING} : std::vector<Turn>{});
    std::vector<std::string> words = {"sh",
                                      "-c",
                                      tried.to_full ? "exec \"$@\" >/dev/full" : "exec \"$@\"",
                                      "sh",
                                      PHONETEST_PROGRAM,
                                      "--port",
                                      phone.Port()};
    words.insert(words.end(), tried.words.begin(), tried.words.end());
    const ToolResult result = RunProgram(words);
    EXPECT_EQ(result.status, 7) << tried.told;
    EXPECT_EQ(result.errors, "phonetest: cannot write " + tried.told);
    EXPECT_EQ(phone.Difference(), "");
  }
}

TEST(LostOutput, LeavesNothingHalfWritten) {
  const fs::path folder = fs::path(TemporaryFolder()) / "half";
  fs::create_directory(folder);
  const std::string read = "1100000000000000";
  const auto fetch = [&](const std::string& limit) {
    ScriptedPhone phone({{read, ZERO + std::string(256, 'A')}});
    return RunProgram({"sh", "-c", "ulimit -f " + limit + "; trap '' XFSZ; exec \"$@\"", "sh",
                       PHONETEST_PROGRAM, "--port", phone.Port(), "factory-info", "read", folder / "info"});
  };
  EXPECT_EQ(fetch("0").status, 7);
  EXPECT_TRUE(fs::is_empty(folder));
  // A later success replaces what a link leads to, and keeps the link and the file's mode.
  std::ofstream(folder / "before") << "before";
  fs::permissions(folder / "before", fs::perms::owner_read | fs::perms::owner_write);
  fs::create_symlink("before", folder / "info");
  EXPECT_EQ(fetch("0").status, 7);
  EXPECT_EQ(ReadFile(folder / "before"), "before");
  EXPECT_EQ(fetch("unlimited").status, 0);
  EXPECT_EQ(ReadFile(folder / "before"), std::string(128, '\xAA'));
  EXPECT_TRUE(fs::is_symlink(folder / "info"));
  EXPECT_EQ(fs::status(folder / "before").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST(TcpPorts, ReachAPhoneAtASerialServer) {
  ScriptedPhone phone({PING, KEY}, ScriptedPhone::Kind::TcpPort);
  const std::string plan =
      TemporaryFile("plan.json", R"({"steps": [{"command": "ping"}, {"command": "key poll"}]})");
  const ToolResult result = RunTool({"--port", phone.Port(), "run", plan});
  EXPECT_EQ(result.status, 0) << result.output << result.errors;
  EXPECT_EQ(phone.Difference(), "");
}

// Lays a port out as the kernel's /sys does.
void MakePort(const fs::path& sysfs, const std::string& name, const std::string& device) {
  fs::create_directories(sysfs / "class/tty" / name);
  fs::create_directories(sysfs / device);
  fs::create_directory_symlink(sysfs / device, sysfs / "class/tty" / name / "device");
}

TEST(Ports, AreListedWithTheirUsbNames) {
  const fs::path sysfs = fs::path(TemporaryFolder()) / "sys";
  fs::create_directories(sysfs / "class/tty/console");
  EXPECT_THROW(station::OnlyPort(station::ListPorts(sysfs)), station::UsageError);
  MakePort(sysfs, "ttyS0", "devices/pnp0/00:01");
  std::ofstream(sysfs / "class/tty/ttyS0/type") << "4\n";
  MakePort(sysfs, "ttyS1", "devices/serial8250");  // a port that the PC could have, but does not
  std::ofstream(sysfs / "class/tty/ttyS1/type") << "0\n";
  MakePort(sysfs, "ttyACM0", "devices/usb1/1-2/1-2:1.0");
  std::ofstream(sysfs / "devices/usb1/1-2/idVendor") << "0525\n";
  std::ofstream(sysfs / "devices/usb1/1-2/manufacturer") << "Linux 2.4\n";
  std::ofstream(sysfs / "devices/usb1/1-2/product") << "Serial Function\n";
  std::ofstream(sysfs / "devices/usb1/1-2/serial") << "12345\n";
  EXPECT_EQ(station::PortTable(station::ListPorts(sysfs)),
            "/dev/ttyACM0      USB: Linux 2.4 Serial Function, serial number 12345, socket 1-2\n"
            "/dev/ttyS0        on board\n");
  EXPECT_EQ(station::OnlyPort(station::ListPorts(sysfs)), "/dev/ttyACM0");
  EXPECT_EQ(station::ListPorts(sysfs)[0].usb_interface, "1-2:1.0");

  MakePort(sysfs, "ttyUSB7", "devices/usb1/1-3/1-3:1.0/ttyUSB7");
  std::ofstream(sysfs / "devices/usb1/1-3/idVendor") << "0403\n";
  try {
    station::OnlyPort(station::ListPorts(sysfs));
    ADD_FAILURE() << "one of two ports was chosen";
  } catch (const station::UsageError& error) {
    EXPECT_NE(std::string(error.what()).find("/dev/ttyUSB7"), std::string::npos);
    EXPECT_EQ(std::string(error.what()).find("/dev/ttyS0"), std::string::npos);
  }
}

TEST(Ports, HeldByAnotherProgramAreRefused) {
  ScriptedPhone phone({});
  const Background holder({"sleep", "60"}, phone.Port());
  const ToolResult refused = RunTool({"--port", phone.Port(), "ping"});
  EXPECT_EQ(refused.status, 3);
  const std::string name = "is held by sleep (process " + std::to_string(holder.Process()) + ")";
  EXPECT_NE(refused.errors.find(name), std::string::npos) << refused.errors;

  // The lock counts also where the holder cannot be seen; here it is the phone's own process.
  ScriptedPhone locked({});
  const int descriptor = open(locked.Port().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_EQ(flock(descriptor, LOCK_EX), 0);
  const ToolResult also = RunTool({"--port", locked.Port(), "ping"});
  EXPECT_EQ(also.status, 3);
  EXPECT_NE(also.errors.find("is held by another program"), std::string::npos) << also.errors;
  close(descriptor);
  EXPECT_EQ(phone.Difference() + locked.Difference(), "");
}

TEST(Ports, WithoutPermissionTellWhichGroupToJoin) {
  ScriptedPhone phone({});
  const bool root = geteuid() == 0;
  constexpr const char* NOBODY = "65534";
  if (root &&
      RunProgram({"setpriv", "--reuid", NOBODY, "--clear-groups", PHONETEST_PROGRAM, "--help"}).status != 0) {
    GTEST_SKIP() << "an ordinary user cannot reach the program";
  }
  // The owner is denied what the group may do.
  ASSERT_EQ(chmod(phone.Port().c_str(), S_IRGRP | S_IWGRP), 0);
  std::vector<std::string> words = {PHONETEST_PROGRAM, "--port", phone.Port(), "ping"};
  if (root) words.insert(words.begin(), {"setpriv", "--reuid", NOBODY, "--regid", NOBODY, "--clear-groups"});
  const ToolResult refused = RunProgram(words);
  EXPECT_EQ(refused.status, 3);
  EXPECT_NE(refused.errors.find("no permission to use " + phone.Port() + "; the group \""), std::string::npos)
      << refused.errors;
}

TEST(Documents, EveryStatedCommandHasARowAndWords) {
  for (const protocol::CommandDescription& stated : protocol::COMMANDS) {
    EXPECT_NE(station::FindCommand(stated.code), nullptr) << "no row for " << stated.name;
    const bool offered = std::ranges::any_of(station::Operations(), [&](const station::Operation& operation) {
      return std::ranges::count(operation.codes, stated.code) > 0;
    });
    EXPECT_TRUE(offered) << "no words for " << stated.name;
  }
  EXPECT_EQ(station::CommandTable().size(), protocol::COMMANDS.size());
}

TEST(Documents, AreCurrent) {
  // Compared as a whole: the difference of two long pages would be no help.
  EXPECT_TRUE(ReadFile(DOCUMENTS "/protocol.md") == RunTool({"commands", "--markdown"}).output)
      << "make it anew: phonetest commands --markdown > docs/protocol.md";
}

TEST(TestLine, ServesNoPageWithTokensThatOthersKnowOrGuess) {
  const std::string plan = TemporaryFile("line-plan.json", R"({"steps": [{"command": "ping"}]})");
  const std::string one(20, 'a'), other(20, 'b');
  const std::string good = "operator " + one + "\nmanager " + other + "\n";
  for (const auto& [tokens, mode, part] :
       {std::tuple(good, 0640, "others can read"),
        {"operator " + one + "\nmanager " + std::string(19, 'b'), 0600, "20 characters"},
        {"operator " + one + "\nmanager " + one, 0600, "needs a line"},
        {"operator " + one, 0600, "needs a line"}}) {
    const std::string file = TemporaryFile("tokens", tokens);
    chmod(file.c_str(), mode);
    const ToolResult refused =
        RunProgram({"timeout", "20", PHONETEST_PROGRAM, "--port", "A=/dev/null", "serve", "--plan", plan,
                    "--results", TemporaryFolder() + "/line.db", "--token-file", file});
    EXPECT_EQ(refused.status, 2) << refused.output;
    EXPECT_NE(refused.errors.find(part), std::string::npos) << refused.errors;
  }
}

TEST(TestLine, RefusesABarcodeThatNoSlotWouldHave) {
  const std::string plan = TemporaryFile("line-plan.json", R"({"steps": [{"command": "ping"}]})");
  using Words = std::vector<std::string>;
  for (Words words : {Words{"--port", "A=/dev/null", "serve", "--barcode", "B=TEXT"},
                      {"serve", "--simulate", "1", "--barcode", "1=TEXT"}}) {
    words.insert(words.begin(), {"timeout", "20", PHONETEST_PROGRAM});
    words.insert(words.end(), {"--plan", plan, "--results", TemporaryFolder() + "/line.db"});
    const ToolResult refused = RunProgram(words);
    EXPECT_EQ(refused.status, 2) << refused.output;
    EXPECT_NE(refused.errors.find("--barcode"), std::string::npos) << refused.errors;
  }
}

TEST(TestLine, ServesANetworkOnlyWithTokens) {
  const std::string plan = TemporaryFile("line-plan.json", R"({"steps": [{"command": "ping"}]})");
  for (const auto& [place, part] : {std::pair("0.0.0.0:0", "needs --token-file"),
                                    {"192.168.7.2:0", "needs --token-file"},
                                    {"[::]:0", "needs --token-file"},
                                    {"127.0.0.1:65536", "is not ADDRESS:PORT"},
                                    {"127.0.0.1:-1", "is not ADDRESS:PORT"},
                                    {"127.0.0.1", "is not ADDRESS:PORT"}}) {
    const ToolResult refused =
        RunProgram({"timeout", "20", PHONETEST_PROGRAM, "--port", "A=/dev/null", "serve", "--plan", plan,
                    "--results", TemporaryFolder() + "/line.db", "--listen", place});
    EXPECT_EQ(refused.status, 2) << refused.output;
    EXPECT_NE(refused.errors.find(part), std::string::npos) << refused.errors;
  }
}

}  // namespace
