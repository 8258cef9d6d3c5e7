// Tasks of several commands: what is sent in which order, and what becomes of the answers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <thread>

#include "station/commands/bytes.h"
#include "station/tool/jpeg_check.h"
#include "tests/station/scripted_phone.h"

namespace {

const std::string ZERO = "00000000";
const std::string PING = ZERO + ZERO;
const std::string LEAVE_FRAME = "F10000006261636B61726D399D9E9C949E8D92C6";

std::string Hex(const std::string& text) {
  return station::HexText({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}, "");
}

// A chunk answer of 1028 bytes, with the status word and that many bytes of the content.
std::string Chunk(const std::string& content) {
  station::Bytes answer;
  station::AppendWord(answer, static_cast<std::uint32_t>(content.size()));
  answer.insert(answer.end(), content.begin(), content.end());
  answer.resize(1028);
  return station::HexText(answer, "");
}

// A JPEG file that is whole by its structure, 64 wide and 48 high, of more than one chunk.
std::string SmallJpeg() {
  using namespace std::string_literals;
  std::string file = "\xFF\xD8"s;
  file += "\xFF\xE0\x00\x10JFIF\x00\x01\x01\x00\x00\x01\x00\x01\x00\x00"s;
  file += "\xFF\xC0\x00\x0B\x08\x00\x30\x00\x40\x01\x01\x11\x00"s;
  file += "\xFF\xDA\x00\x08\x01\x01\x00\x00\x3F\x00"s;
  // Entropy-coded data with a stuffed byte and a restart marker in it.
  return file + std::string(1200, '\x55') + "\xFF\x00\x12\xFF\xD3\x34\xFF\xD9"s;
}

TEST(Tasks, ModemImageIsReadFromItsStart) {
  const std::string first(1024, 'a');
  const std::string second(1000, 'b');
  const std::string read = "34000000" + ZERO;
  // An earlier reading was broken off: the reader stands before the image's last chunk.
  ScriptedPhone phone({{read, Chunk(second)}, {read, Chunk(first)}, {read, Chunk(second)}});
  const std::string file = TemporaryFile("image", "");
  const ToolResult result = RunTool({"--port", phone.Port(), "modem-image", "fetch", "-o", file});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output, "2024 bytes\n");
  EXPECT_EQ(result.errors, "");  // no progress where nobody watches
  EXPECT_EQ(ReadFile(file), first + second);
  EXPECT_EQ(phone.Difference(), "");

  ScriptedPhone broken({{read, Chunk("")}, {read, "FDD8FFFF" + Repeat("00", 1024)}});
  EXPECT_EQ(RunTool({"--port", broken.Port(), "modem-image", "fetch", "-o", file}).status, 1);
  EXPECT_EQ(ReadFile(file), first + second);
}

TEST(Tasks, FactoryInfoIntoAFileAndVersions) {
  const std::string file = TemporaryFile("info", "");
  ScriptedPhone phone({{"11000000" + ZERO, ZERO + Repeat("C3", 128)},
                       {"0A000000" + ZERO, ZERO + "5231" + Repeat("00", 126)},
                       {"0F000000" + ZERO, ZERO + Repeat("00", 128)},
                       {"10000000" + ZERO, ZERO + "5233" + Repeat("00", 126)}});
  EXPECT_EQ(RunTool({"--port", phone.Port(), "factory-info", "read", file}).status, 0);
  EXPECT_EQ(ReadFile(file), std::string(128, '\xC3'));
  const ToolResult versions = RunTool({"--port", phone.Port(), "--json", "versions"});
  const auto answer = nlohmann::json::parse(versions.output)["answer"];
  EXPECT_EQ(answer, nlohmann::json({{"system", "R1"}, {"configuration", ""}, {"resources", "R3"}}));
  EXPECT_EQ(phone.Difference(), "");
}

TEST(Tasks, LinkPausesAndComesBack) {
  // The phone does not hear the first ping.
  ScriptedPhone phone({{"3C00000000000000", ZERO}, {PING, ""}, {PING, "01000000"}});
  const ToolResult result = RunTool({"--port", phone.Port(), "--json", "pause-link", "0"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_GT(nlohmann::json::parse(result.output)["answer"]["answers-after"], 0.9);
  EXPECT_EQ(phone.Difference(), "");
}

TEST(Tasks, KeysAreNamedWhenTheyAreNew) {
  const std::string poll = "27000000" + ZERO;
  // The remembered key first, then a known one.
  ScriptedPhone phone({{poll, "01110000"}, {poll, "01110000"}, {poll, "003D0000"}});
  EXPECT_EQ(RunTool({"--port", phone.Port(), "key", "wait"}).output,
            "key:   eject\ncode:  0x3D00\nnew:   yes\n");
  EXPECT_EQ(phone.Difference(), "");
  // A key outside the table whose own state byte looks like a remembered key's.
  ScriptedPhone unknown({{poll, "01110000"}, {poll, "01FF0000"}});
  EXPECT_EQ(RunTool({"--port", unknown.Port(), "key", "wait"}).status, 0);
  EXPECT_EQ(unknown.Difference(), "");
  ScriptedPhone quiet({{poll, "01110000"}});
  const ToolResult none = RunTool({"--port", quiet.Port(), "key", "wait", "--seconds", "0"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.errors, "phonetest: key wait failed: no key came in time\n");

  std::vector<Turn> all;
  for (const char* key : {"3F", "80", "90", "17", "18", "11", "12", "2C", "2D", "2E", "2F", "3D", "85"}) {
    all.push_back({poll, std::string("00") + key + "0000"});
  }
  ScriptedPhone keypad(all);
  EXPECT_EQ(RunTool({"--port", keypad.Port(), "key", "watch"}).output, "all 13\n");
  EXPECT_EQ(keypad.Difference(), "");
}

TEST(Tasks, CrossesAreWatchedUntilNoneIsLeft) {
  const std::string state = "2D0000000200000000000000";
  const std::string rest = ZERO + ZERO;
  ScriptedPhone phone({{state, "1F000000" + rest}, {state, "10000000" + rest}, {state, ZERO + rest}});
  EXPECT_EQ(RunTool({"--port", phone.Port(), "touch", "watch"}).status, 0);
  EXPECT_EQ(phone.Difference(), "");
  ScriptedPhone untouched({{state, "12000000" + rest}});
  const ToolResult late = RunTool({"--port", untouched.Port(), "touch", "watch", "--seconds", "0"});
  EXPECT_EQ(late.status, 1);
  EXPECT_NE(late.errors.find("crosses not touched in time: top right, centre"), std::string::npos)
      << late.errors;
}

TEST(Tasks, RadioScanDrawsTheBand) {
  const auto measure = [](const std::string& frequency) {
    return "2C00000001000000" + frequency + ZERO + ZERO + ZERO;
  };
  ScriptedPhone phone({{measure("0A000000"), ZERO + "0A000000" + ZERO},
                       {measure("14000000"), ZERO + "14000000" + "FFFF0000"},
                       {measure("1E000000"), ZERO + "1E000000" + "00800000"}});
  const ToolResult result =
      RunTool({"--port", phone.Port(), "radio", "scan", "--from", "10", "--to", "35", "--step", "10"});
  EXPECT_NE(result.output.find("20 |##################################################| 65535"),
            std::string::npos)
      << result.output;
  EXPECT_NE(result.output.find("30 |#########################                         | 32768"),
            std::string::npos);
  EXPECT_NE(result.output.find("strongest:  20"), std::string::npos);
  EXPECT_EQ(phone.Difference(), "");
}

TEST(Tasks, CameraPictureIsTakenFetchedCheckedAndDeleted) {
  const std::string picture = SmallJpeg();
  const std::string take =
      "24000000"
      "14000000"
      "30000000"
      "40000000"
      "5A000000";  // 48 x 64, turned by 90
  const std::string remove = "2400000016000000" + Repeat("00", 12);
  const std::string stop = "410000000F000000";
  const std::string next = "4100000018000000";
  const std::string file = TemporaryFile("focus.jpg", "");
  ScriptedPhone phone({{take, ZERO},
                       {stop, ZERO + Repeat("00", 1024)},
                       {next, Chunk(picture.substr(0, 1024))},
                       {next, Chunk(picture.substr(1024))},
                       {remove, ZERO}});
  const ToolResult result = RunTool({"--port", phone.Port(), "camera", "capture", "focus", "--size", "48x64",
                                     "--rotate", "90", "-o", file});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(ReadFile(file), picture);
  EXPECT_EQ(phone.Difference(), "");

  // The last byte is lost on the way; the picture stays on the phone.
  const std::string cut = picture.substr(0, picture.size() - 1);
  ScriptedPhone lossy({{stop, ZERO + Repeat("00", 1024)},
                       {next, Chunk(cut.substr(0, 1024))},
                       {next, Chunk(cut.substr(1024))}});
  const ToolResult damaged = RunTool({"--port", lossy.Port(), "camera", "fetch", "focus", "-o", file});
  EXPECT_EQ(damaged.status, 1);
  EXPECT_NE(damaged.errors.find("the picture is not whole: it is cut short"), std::string::npos)
      << damaged.errors;
  EXPECT_EQ(RunTool({"--port", lossy.Port(), "camera", "capture", "focus", "--size", "48"}).status, 2);
}

TEST(Tasks, EveryCutOfAJpegIsNoticed) {
  const std::string picture = SmallJpeg();
  const auto check = [](const std::string& file) {
    return station::CheckJpeg({reinterpret_cast<const std::uint8_t*>(file.data()), file.size()});
  };
  EXPECT_EQ(check(picture).fault, "");
  EXPECT_EQ(check(picture).width, 64u);
  EXPECT_EQ(check(picture).height, 48u);
  for (std::size_t size = 0; size < picture.size(); ++size)
    EXPECT_NE(check(picture.substr(0, size)).fault, "") << size;
  EXPECT_EQ(check(picture + "x").fault, "1 bytes follow the picture");
  EXPECT_EQ(check(picture.substr(0, 2) + picture.substr(picture.size() - 2)).fault, "it holds no picture");
}

TEST(Tasks, PassThroughAsAPipe) {
  // Every byte value goes both ways, the leave key among them, and the leave frame goes out last and alone.
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  ScriptedPhone phone({{"3D000000" + ZERO, ZERO}, {Hex(all), Hex(all)}, {LEAVE_FRAME, ""}});
  const ToolResult result =
      RunTool({"--port", phone.Port(), "modem", "pass-through", "--raw", "--linger", "200"},
              TemporaryFile("typed", all));
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output, all);
  EXPECT_EQ(phone.Difference(), "");
}

TEST(Tasks, PassThroughAtATerminal) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_EQ(grantpt(terminal), 0);
  ASSERT_EQ(unlockpt(terminal), 0);
  ScriptedPhone phone({{"3D000000" + ZERO, ZERO}, {Hex("AT\x03\r"), Hex("\r\nOK\r\n")}, {LEAVE_FRAME, ""}});
  std::thread typist([terminal] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(write(terminal, "AT\x03\r", 4), 4);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(write(terminal,
                    "\x1D"
                    "lost",
                    5),
              5);
  });
  const ToolResult result = RunTool({"--port", phone.Port(), "modem", "pass-through"}, ptsname(terminal));
  typist.join();
  close(terminal);
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output, "\r\nOK\r\n");
  EXPECT_NE(result.errors.find("Ctrl-] leaves"), std::string::npos);
  EXPECT_EQ(phone.Difference(), "");
}

}  // namespace
