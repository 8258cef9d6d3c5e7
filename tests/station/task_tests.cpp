// Tasks of several commands: what is sent in which order, and what becomes of the answers.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>

#include "station/commands/bytes.h"
#include "station/tasks/jpeg_check.h"
#include "station/tasks/operation.h"
#include "tests/station/scripted_phone.h"

namespace {

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

// A picture of 64 x 48 pixels and of more than one chunk.
std::string SmallJpeg() {
  const station::Bytes bytes = station::BytesFromHex(GreyJpeg(64, 48, 1000));
  return {bytes.begin(), bytes.end()};
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

  // A phone that has lost its place delivers full chunks without end.
  ScriptedPhone endless(std::vector<Turn>(81, {read, Chunk(first)}));
  const ToolResult refused = RunTool({"--port", endless.Port(), "modem-image", "fetch", "-o", file});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.errors.find("the phone delivers more than 81920 bytes"), std::string::npos)
      << refused.errors;
  EXPECT_EQ(endless.Difference(), "");
  std::vector<Turn> large(162, {read, Chunk(first)});
  large[79] = large.back() = {read, Chunk("")};
  ScriptedPhone larger(large);
  EXPECT_EQ(RunTool({"--port", larger.Port(), "modem-image", "fetch", "-o", file, "--largest", "81"}).output,
            "82944 bytes\n");
  EXPECT_EQ(larger.Difference(), "");

  const std::string before = ReadFile(file);
  ScriptedPhone broken({{read, Chunk("")}, {read, "FDD8FFFF" + Repeat("00", 1024)}});
  EXPECT_EQ(RunTool({"--port", broken.Port(), "modem-image", "fetch", "-o", file}).status, 1);
  EXPECT_EQ(ReadFile(file), before);
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

// Each is a phone that reads an identity, takes the write, and reads again.
TEST(Tasks, WhatIsWrittenIsReadBack) {
  const auto identity = [](const std::string& digits) { return Turn{"0B000000" + ZERO, ZERO + Hex(digits)}; };
  const std::string number = "490154203237518";
  const Turn write = {"0C000000" + Hex(number), ZERO};
  const std::string block = TemporaryFile("block", std::string(128, '\x5A'));
  const Turn block_write = {"32000000" + Repeat("5A", 128), ZERO};
  const auto block_read = [](const std::string& end) {
    return Turn{"11000000" + ZERO, ZERO + Repeat("5A", 127) + end};
  };
  const Turn blank = identity("000000011234564");
  const struct {
    std::vector<Turn> turns;
    std::vector<std::string> command;
    int status;
    std::string shown;
  } cases[] = {
      {{blank, write, identity(number)}, {"identity", "write", number}, 0, "ok\n"},
      {{blank, write, blank}, {"identity", "write", number}, 1, "reads back as 000000011234564 instead of"},
      {{blank, write, {"0B000000" + ZERO, "FBD8FFFF" + Repeat("00", 15)}},
       {"identity", "write", number},
       1,
       "cannot be read back: -9989"},
      {{identity(number), write, identity(number)}, {"identity", "write", number}, 0, "nothing was written"},
      {{identity("123456789012347")}, {"identity", "write", number}, 1, "carries the identity 1234567890"},
      // The digits are right, but not their complement.
      {{identity(number), {write.expected, "FAD8FFFF"}}, {"identity", "write", number}, 1, "-9990"},
      {{blank, {"0C000000" + Hex("490154203237519"), ZERO}, identity("490154203237519")},
       {"identity", "write", "490154203237519", "--force"},
       0,
       "ok\n"},
      {{block_write, block_read("5A")}, {"factory-info", "write", block}, 0, "ok\n"},
      {{block_write, block_read("FF")},
       {"factory-info", "write", block},
       1,
       "byte 127 is 0xFF instead of 0x5A"},
      {{block_write, {"11000000" + ZERO, "F9D8FFFF" + Repeat("00", 128)}},
       {"factory-info", "write", block},
       1,
       "cannot be read back: -9991"},
  };
  for (const auto& tried : cases) {
    ScriptedPhone phone(tried.turns);
    std::vector<std::string> words = {"--port", phone.Port(), "--yes"};
    words.insert(words.end(), tried.command.begin(), tried.command.end());
    const ToolResult result = RunTool(words);
    EXPECT_EQ(result.status, tried.status) << result.errors;
    EXPECT_NE((result.output + result.errors).find(tried.shown), std::string::npos)
        << result.output << result.errors;
    EXPECT_EQ(phone.Difference(), "");
  }
}

TEST(Tasks, LinkPausesAndComesBack) {
  // The phone does not hear the first ping.
  ScriptedPhone phone({{"3C00000000000000", ZERO}, {PING_REQUEST, ""}, {PING_REQUEST, "01000000"}});
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
  ScriptedPhone phone({{measure("40060000"), ZERO + "40060000" + ZERO},
                       {measure("4A060000"), ZERO + "4A060000" + "FFFF0000"},
                       {measure("54060000"), ZERO + "54060000" + "00800000"}});
  const ToolResult result =
      RunTool({"--port", phone.Port(), "radio", "scan", "--from", "100", "--to", "101.5", "--step", "0.6"});
  EXPECT_NE(result.output.find("100.6 |##################################################| 65535"),
            std::string::npos)
      << result.output;
  EXPECT_NE(result.output.find("101.25 |#########################                         | 32768"),
            std::string::npos);
  EXPECT_NE(result.output.find("strongest:  100.6 MHz"), std::string::npos);
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
  EXPECT_NE(damaged.errors.find("the picture is not whole: Premature end of JPEG file"), std::string::npos)
      << damaged.errors;
  EXPECT_EQ(RunTool({"--port", lossy.Port(), "camera", "capture", "focus", "--size", "48"}).status, 2);
}

// The phone's picture has 64 x 48 pixels whatever is asked for.
TEST(Tasks, ACameraPictureOfAnotherSizeOrThatIsNotDeletedIsAFailure) {
  const std::string picture = SmallJpeg();
  const std::string next = "4100000018000000";
  const std::string remove = "2400000016000000" + Repeat("00", 12);
  const struct {
    const char* size;
    const char* rotation;
    std::string request;
    const char* deleted;
    std::string told;  // empty if all is well
  } cases[] = {
      {"64x48", "0", "400000003000000000000000", "00000000", ""},
      {"64x48", "180", "4000000030000000B4000000", "00000000", ""},
      {"48x64", "270", "30000000400000000E010000", "00000000", ""},
      {"64x48", "270", "40000000300000000E010000", "00000000", "the picture is 64x48 instead of 48x64"},
      {"64x40", "0", "400000002800000000000000", "00000000", "the picture is 64x48 instead of 64x40"},
      {"56x48", "0", "380000003000000000000000", "00000000", "the picture is 64x48 instead of 56x48"},
      {"64x48", "0", "400000003000000000000000", "FBD8FFFF", "-9989"},
  };
  for (const auto& tried : cases) {
    ScriptedPhone phone({{"2400000014000000" + tried.request, ZERO},
                         {"410000000F000000", ZERO + Repeat("00", 1024)},
                         {next, Chunk(picture.substr(0, 1024))},
                         {next, Chunk(picture.substr(1024))},
                         {remove, tried.deleted}});
    const ToolResult result = RunTool({"--port", phone.Port(), "camera", "capture", "focus", "--size",
                                       tried.size, "--rotate", tried.rotation});
    EXPECT_EQ(result.status, tried.told.empty() ? 0 : 1) << tried.size << tried.rotation << result.errors;
    EXPECT_NE(result.errors.find(tried.told), std::string::npos) << result.errors;
    EXPECT_EQ(phone.Difference(), "");
  }
}

// A phone whose clock is an hour ahead and goes on by a second.
TEST(Tasks, AClockAheadIsSoManySecondsAhead) {
  const auto read = [](std::time_t time) {
    std::tm local{};
    localtime_r(&time, &local);
    station::Bytes answer(4);
    for (const int word : {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                           local.tm_sec, 0, 0})
      station::AppendWord(answer, static_cast<std::uint32_t>(word));
    return Turn{"2E000000" + ZERO, station::HexText(answer, "")};
  };
  const std::time_t now = std::time(nullptr);
  ScriptedPhone phone({read(now + 100'000), read(now + 100'001)});
  const ToolResult result = RunTool({"--json", "--port", phone.Port(), "clock", "check"});
  EXPECT_EQ(result.status, 0) << result.errors;
  const auto answer = nlohmann::json::parse(result.output)["answer"];
  EXPECT_EQ(answer["advance"], 1);
  EXPECT_LE(answer["ahead"], 104'000);  // summer time may begin meanwhile
  EXPECT_GE(answer["ahead"], 90'000);
  EXPECT_EQ(phone.Difference(), "");
}

TEST(Tasks, AChunkThatClaimsMoreThanItHoldsIsRefused) {
  const std::string stop = "410000000F000000";
  const std::string next = "4100000018000000";
  const std::string file = TemporaryFolder() + "/never.jpg";
  for (const char* count : {"01040000", "FFFFFF7F"}) {
    ScriptedPhone phone({{stop, ZERO + Repeat("00", 1024)}, {next, count + Repeat("00", 1024)}});
    const ToolResult result = RunTool({"--port", phone.Port(), "camera", "fetch", "focus", "-o", file});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("bytes in a chunk of 1024"), std::string::npos) << result.errors;
    EXPECT_EQ(ReadFile(file), "");
  }
}

// Any answer of the right size is decoded to something that JSON can hold, whatever counts and texts it
// claims.
TEST(Tasks, GarbageAnswersAreDecoded) {
  std::mt19937 random(1);
  for (const station::Command& command : station::CommandTable()) {
    for (int round = 0; round < 200; ++round) {
      station::Bytes answer(station::AnswerSize(command.answer));
      for (std::uint8_t& byte : answer) byte = static_cast<std::uint8_t>(round == 0 ? 0xFF : random());
      const bool failed = !station::AnswerFailure(command, answer).empty();
      EXPECT_EQ(failed, !answer.empty() && (answer[3] >= 0x80 || (command.code == 0 && answer[0] != 1)));
      const auto readings =
          answer.empty() ? std::vector<station::Reading>{} : station::DecodeAnswer(command.answer, answer);
      EXPECT_NO_THROW(station::ReadingsJson(readings).dump()) << command.name;
    }
  }
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
  EXPECT_NE(check(picture.substr(0, 2) + picture.substr(picture.size() - 2)).fault, "");
  // Damage between the headers and the end, which leaves the structure as it is.
  std::string damaged = picture;
  damaged[picture.size() - 6] = '\x7F';
  EXPECT_EQ(check(damaged).fault, "Corrupt JPEG data: bad Huffman code");
  // A header that claims 65500 x 65500 pixels is refused before it costs time or memory.
  std::string large = picture;
  const std::size_t extent = picture.find("\xFF\xC0") + 5;
  large.replace(extent, 4, "\xFF\xDC\xFF\xDC");
  EXPECT_EQ(check(large).fault, "it claims to be larger than any camera picture");
}

TEST(Tasks, PassThroughAsAPipe) {
  // Every byte value goes both ways, the leave key among them, and the leave frame goes out last and alone.
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  ScriptedPhone phone({{"3D000000" + ZERO, ZERO}, {Hex(all), Hex(all)}, {LEAVE_FRAME, ""}});
  const ToolResult result =
      RunTool({"--port", phone.Port(), "modem", "pass-through", "--raw", "--linger", "2000"},
              TemporaryFile("typed", all));
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output, all);
  EXPECT_EQ(phone.Difference(), "");
}

TEST(Tasks, PassThroughAtATerminal) {
  const Terminal terminal;
  ScriptedPhone phone({{"3D000000" + ZERO, ZERO}, {Hex("AT\x03\r"), Hex("\r\nOK\r\n")}, {LEAVE_FRAME, ""}});
  std::vector<std::string> typed = {
      "\x1D"
      "lost",
      "AT\x03\r"};
  const ToolResult result = RunTool(
      {"--port", phone.Port(), "modem", "pass-through"}, terminal.Path(), [&](const ToolResult& so_far) {
        const bool answered = so_far.output == "\r\nOK\r\n";
        if (typed.empty() || (typed.size() == 2 ? !terminal.IsRaw() : !answered)) return;
        terminal.Type(typed.back());
        typed.pop_back();
      });
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.output, "\r\nOK\r\n");
  EXPECT_NE(result.errors.find("Ctrl-] leaves"), std::string::npos);
  EXPECT_FALSE(terminal.IsRaw());
  EXPECT_EQ(phone.Difference(), "");
}

}  // namespace
