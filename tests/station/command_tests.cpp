// Every command's exact bytes on the link, and what the tool makes of the answer.
#include <gtest/gtest.h>

#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/station/scripted_phone.h"

namespace {

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

// `size` bytes as the tool shows them, one line.
std::string Blocks(const std::string& byte, std::size_t size) {
  std::string line = Repeat(byte + " ", size);
  line.back() = '\n';
  return line;
}

// 128 equal bytes as the tool shows them.
std::string Rows(const std::string& byte, const std::string& character) {
  std::string rows;
  for (const char* offset : {"000", "010", "020", "030", "040", "050", "060", "070"}) {
    rows += std::string("  ") + offset + "  " + Repeat(byte + " ", 16) + " " + Repeat(character, 16) + "\n";
  }
  return rows;
}

void Try(const Case& tried) {
  SCOPED_TRACE(Name(tried));
  // Nothing may be sent where the arguments are refused.
  ScriptedPhone phone(tried.sent.empty() ? std::vector<Turn>{}
                                         : std::vector<Turn>{{tried.sent, tried.answer}});
  std::vector<std::string> arguments = {"--port", phone.Port(), "--timeout", "10000"};
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
      {{"led", "-1", "--unchecked"}, "39000000FFFFFFFF00000000", ZERO, 0, "ok\n"},
      {{"led", "off"}, "390000000000000000000000", OPEN_FAILED, 1, "device or file could not be opened"},
      {{"uart-rx", "1"}, "3A0000000100000000000000", ZERO, 0, "ok\n"},
  };
  for (const Case& tried : cases) Try(tried);
}

TEST(Commands, ProductionData) {
  const std::string shorter = TemporaryFile("short-info", std::string(127, '\x5A'));
  const std::string bytes = "0102030405060708090A";
  const std::string address = "001122AABBCC000000000000000000000000";
  const std::vector<Case> cases = {
      {{"--yes", "partition-word", "0x1234"}, "0400000034120000", ZERO, 0, "ok\n"},
      {{"--yes", "partition-word", "4294967295"},
       "04000000FFFFFFFF",
       "F9D8FFFF",
       1,
       "neither copy of the partition"},
      {{"factory-field", "read-first"},
       "05000000" + ZERO,
       ZERO + bytes,
       0,
       "01 02 03 04 05 06 07 08 09 0A\n"},
      {{"factory-field", "write-first", bytes}, "06000000" + bytes, "F6D8FFFF", 1, "-9994 NOT_SUPPORTED"},
      {{"factory-field", "read-second"},
       "08000000" + ZERO,
       ZERO + bytes,
       0,
       "01 02 03 04 05 06 07 08 09 0A\n"},
      {{"factory-field", "write-second", bytes}, "09000000" + bytes, "F6D8FFFF", 1, "-9994 NOT_SUPPORTED"},
      {{"identity", "read"},
       "0B000000" + ZERO,
       ZERO + "313233343536373839303132333435",
       0,
       "123456789012345\n"},
      {{"identity", "check-blank"}, "47000000" + ZERO, ZERO, 0, "ok\n"},
      {{"--yes", "bluetooth-address", "write", "00:11:22:aa:bb:cc"}, "0E000000" + address, ZERO, 0, "ok\n"},
      {{"--yes", "bluetooth-address", "write-extended", "001122AABBCC"},
       "37000000" + address,
       ZERO,
       0,
       "ok\n"},
      {{"factory-info", "read"}, "11000000" + ZERO, ZERO + Repeat("5A", 128), 0, Rows("5A", "Z")},
      {{"factory-info", "read"}, "11000000" + ZERO, ZERO + Repeat("7F", 128), 0, Rows("7F", ".")},
      {{"factory-info", "read-extended"},
       "31000000" + ZERO,
       "F9D8FFFF" + Repeat("00", 128),
       1,
       "\"Factory Info\""},
      {{"--yes", "modem-image", "save"}, "33000000" + ZERO, ZERO, 0, "ok\n"},
      {{"modem-image", "chunk"},
       "34000000" + ZERO,
       "03000000010203" + Repeat("00", 1021),
       0,
       "count:  3\nbytes:  01 02 03\n"},
  };
  for (const Case& tried : cases) Try(tried);
  const std::vector<Case> refused = {
      {{"identity", "write", "12345678901234"}, "", "", 2, "not a number of 15 digits"},
      {{"identity", "write", "12345678901234A"}, "", "", 2, "not a number of 15 digits"},
      {{"--yes", "identity", "write", "490154203237519"}, "", "", 2, "the check digit, is 9 instead of 8"},
      {{"--yes", "identity", "write", "000000011234564"}, "", "", 2, "what a phone without an identity"},
      {{"bluetooth-address", "write", "00:11:22:AA:BB"}, "", "", 2, "not an address"},
      {{"bluetooth-address", "write", "00:11:22:AA:BB:GG"}, "", "", 2, "not an address"},
      {{"bluetooth-address", "write", "00:11:22:AA:"}, "", "", 2, "not an address"},
      {{"factory-info", "write", shorter}, "", "", 2, "holds 127 bytes, but 128 are needed"},
      {{"factory-info", "write", TemporaryFile("long-info", std::string(129, '\x5A'))},
       "",
       "",
       2,
       "holds 129 bytes, but 128 are needed"},
      {{"factory-info", "write", "/no/such/file"}, "", "", 2, "cannot read /no/such/file"},
      {{"factory-info", "write", "/dev/zero"}, "", "", 2, "cannot read /dev/zero"},
      {{"factory-field", "write-first", bytes + "0B"}, "", "", 2, "at most 10 can be sent"},
  };
  for (const Case& tried : refused) Try(tried);
}

TEST(Commands, Maintenance) {
  const std::string version = "52312E32" + Repeat("00", 124);
  const std::vector<Case> cases = {
      {{"power-off", "--yes"}, "02000000" + ZERO, "", 0, "sent; the phone never answers this command\n"},
      {{"--yes", "factory-reset"}, "03000000" + ZERO, ZERO, 0, "ok\n"},
      {{"version", "system"}, "0A000000" + ZERO, ZERO + version, 0, "R1.2\n"},
      {{"version", "configuration"}, "0F000000" + ZERO, ZERO + version, 0, "R1.2\n"},
      {{"version", "resources"}, "10000000" + ZERO, ZERO + Repeat("41", 128), 0, Repeat("A", 128) + "\n"},
      {{"--yes", "stop-ui"}, "0D000000" + ZERO, "", 0, "sent; the phone never answers this command\n"},
      {{"memory-card"}, "26000000" + ZERO, "F5D8FFFF", 1, "no card"},
      {{"clock", "get"},
       "2E000000" + ZERO,
       ZERO + "D50700000C0000001F000000170000003B0000003A0000000000000000000000",
       0,
       "2005-12-31 23:59:58\n"},
      {{"clock", "set", "2006-01-15T08:30:00"},
       "2F000000D6070000010000000F000000080000001E000000000000000000000000000000",
       ZERO,
       0,
       "ok\n"},
      {{"clock", "set", "2006-02-31 00:00:00", "--unchecked"},
       "2F000000D6070000020000001F0000000000000000000000000000000000000000000000",
       "F9D8FFFF",
       1,
       "refused the time"},
      {{"clock", "set", "tomorrow"}, "", "", 2, "tomorrow"},
      {{"clock", "set"}, "", "", 2, "--now"},
      {{"calibration", "write"}, "4500000001000000", ZERO, 0, "ok\n"},
      {{"calibration", "remove"}, "4500000000000000", ZERO, 0, "ok\n"},
  };
  for (const Case& tried : cases) Try(tried);
}

// Nobody is at a terminal to be asked.
TEST(Commands, WhatCannotBeUndoneAsks) {
  const std::string block = TemporaryFile("factory-info", std::string(128, '\x5A'));
  const std::vector<std::vector<std::string>> commands = {
      {"identity", "write", "490154203237518"},
      {"factory-info", "write", block},
      {"bluetooth-address", "write", "001122AABBCC"},
      {"bluetooth-address", "write-extended", "001122AABBCC"},
      {"partition-word", "1"},
      {"modem-image", "save"},
      {"modem", "control", "on"},
      {"factory-reset"},
      {"stop-ui"},
      {"run-in", "5"},
      {"power-off"}};
  for (const std::vector<std::string>& command : commands)
    Try({command, "", "", 2, "There is no terminal for the question: use --yes to do it"});
}

TEST(Commands, ModemAndBluetooth) {
  const std::string address = "001122AABBCC";
  const std::string at =
      "41542B435351"
      "0D" +
      Repeat("00", 25);
  const std::vector<Case> cases = {
      {{"modem", "info"},
       "23000000" + ZERO,
       ZERO + "010000000200000003000000040000000500000006000000",
       0,
       "word-0:  1\nword-1:  2\nword-2:  3\nword-3:  4\nword-4:  5\nword-5:  6\n"},
      {{"sim-check"},
       "25000000" + ZERO,
       "F4D8FFFF",
       1,
       "-9996 SIM_NOT_READY: the modem answered \"at+cpin?\""},
      {{"modem", "status-word"}, "30000000" + ZERO, ZERO + "39300000", 0, "12345\n"},
      {{"at", "AT+CSQ", "--timeout", "5000"},
       "3B000000" + at + "88130000",
       ZERO + "0D0A2B4353513A2032302C39390D0A0D0A4F4B0D0A" + Repeat("00", 11),
       0,
       "+CSQ: 20,99\nOK\n"},
      {{"at", "--raw", "12345678901234567890123456789012"},
       "3B0000003132333435363738393031323334353637383930313233343536373839303132"
       "B80B0000",
       "F9D8FFFF" + Repeat("00", 32),
       1,
       "no \"OK\" or \"ERROR\" came"},
      {{"at", "12345678901234567890123456789012"}, "", "", 2, "longer than 31"},
      {{"modem", "state"}, "3E000000" + ZERO, "00D9FFFF", 1, "-9984 MODEM_STATE_ZERO"},
      {{"modem", "lines", "on", "0", "1"}, "3F000000010000000000000001000000", ZERO, 0, "ok\n"},
      {{"--yes", "modem", "control", "on"}, "4600000001000000", ZERO, 0, "ok\n"},
      {{"modem", "line"}, "48000000" + ZERO, ZERO + "FF000000", 0, "255\n"},
      {{"bluetooth", "address"}, "07000000" + ZERO, ZERO + address, 0, "00:11:22:AA:BB:CC\n"},
      {{"bluetooth", "three-numbers", "1", "-2", "3"},
       "3500000001000000FEFFFFFF03000000",
       "07000000",
       0,
       "7\n"},
      {{"bluetooth", "number-for-two-numbers", "1", "2"},
       "36000000010000000200000000000000",
       ZERO + "FFFFFFFF",
       0,
       "-1\n"},
      {{"bluetooth", "data-for-data", "00:11:22:AA:BB:CC", "0102 03"},
       "42000000" + address + "03000000" + "010203" + Repeat("00", 13),
       ZERO + "02000000" + "AABB" + Repeat("00", 14),
       0,
       "count:  2\ndata:   AA BB\n"},
      {{"bluetooth", "data-for-data", "00:11:22:AA:BB:CC", "", "--length", "256", "--unchecked"},
       "42000000" + address + "00010000" + Repeat("00", 16),
       "F8D8FFFF" + Repeat("00", 20),
       1,
       "-9992 REQUEST_FAILED: the Bluetooth test tool"},
      {{"bluetooth", "bytes-for-code", "00:11:22:AA:BB:CC", "12"},
       "43000000" + address + "31320000",
       ZERO + Repeat("11", 23) + "FF",
       0,
       Blocks("11", 23)},
      {{"bluetooth", "number-for-number", "9"}, "4400000009000000", ZERO + "0A000000", 0, "10\n"},
      {{"bluetooth", "address-for-number", "9"},
       "4900000009000000",
       ZERO + address + ZERO,
       0,
       "00:11:22:AA:BB:CC\n"},
  };
  for (const Case& tried : cases) Try(tried);
}

TEST(Commands, SoundKeysTouchAndCamera) {
  const std::vector<Case> cases = {
      {{"tone", "start", "1000"},
       "29000000E8030000000000000000000000000000280000000100000001000000",
       ZERO,
       0,
       "ok\n"},
      {{"tone", "start", "2100", "1600", "400", "--volume", "80", "--route", "2"},
       "29000000340800004006000090010000000000005000000002000000"
       "01000000",
       "F9D8FFFF",
       1,
       "a tone is being played already"},
      {{"tone", "stop"}, "29000000" + Repeat("00", 28), ZERO, 0, "ok\n"},
      {{"audio-path", "on", "3"}, "2A0000000100000003000000", ZERO, 0, "ok\n"},
      {{"audio-path", "off"}, "2A0000000000000000000000", ZERO, 0, "ok\n"},
      {{"play", "amr", "--path", "1", "--argument", "5"},
       "40000000150000000100000005000000",
       "C0D9FFFF",
       1,
       "-9792 THIRD_REQUEST_FAILED: third mixer request of the AMR path failed"},
      {{"play", "stop"}, "40000000000000000200000000000000", ZERO, 0, "ok\n"},
      {{"radio", "measure", "98.5", "--volume", "0", "--extra", "1", "--extra-flag", "1"},
       "2C000000010000002806000000000000"
       "0100000001000000",
       ZERO + "28060000"
              "00A00000",
       0,
       "frequency:  98.5 MHz\nsignal:     40960\n"},
      {{"radio", "play", "98.5"},
       "2C0000000200000028060000008000000000000000000000",
       "C0D9FFFF" + ZERO + ZERO,
       1,
       "-9792 THIRD_REQUEST_FAILED: the private request failed"},
      // 98.3 MHz are 1572.8 sixteenths.
      {{"radio", "tune", "98.3"},
       "2C0000000300000025060000008000000000000000000000",
       ZERO + "25060000" + ZERO,
       0,
       "frequency:  98.3 MHz\nsignal:     0\n"},
      // A tuner that counts in 1/16 kHz.
      {{"radio", "tune", "98300 kHz"},
       "2C00000003000000C0FF1700008000000000000000000000",
       ZERO + "C1FF1700" + ZERO,
       0,
       "frequency:  98.3000625 MHz\nsignal:     0\n"},
      {{"radio", "tune", "98300", "--unchecked"},
       "2C00000003000000C0FF1700008000000000000000000000",
       ZERO + "C0FF1700" + ZERO,
       0,
       "frequency:  98.3 MHz\nsignal:     0\n"},
      {{"radio", "off"},
       "2C000000" + Repeat("00", 20),
       "5CD9FFFF" + ZERO + ZERO,
       1,
       "-9892 SECOND_REQUEST_FAILED: the volume"},
      {{"--yes", "run-in", "5"}, "3800000005000000" + Repeat("00", 20), ZERO, 0, "ok\n"},
      {{"key", "poll"}, "27000000" + ZERO, "00110000", 0, "key:   power\ncode:  0x1100\nnew:   yes\n"},
      {{"key", "poll"}, "27000000" + ZERO, ZERO, 0, "key:   none yet\ncode:  0x0000\nnew:   no\n"},
      {{"touch", "start"}, "2D0000000100000000000000", "00000000" + Repeat("00", 8), 0, "ok\n"},
      {{"touch", "state"},
       "2D0000000200000000000000",
       "11000000" + Repeat("00", 8),
       0,
       "crosses:  0x11\nleft:     top left, centre\n"},
      {{"touch", "state"},
       "2D0000000200000000000000",
       "5FD9FFFF" + Repeat("00", 8),
       1,
       "-9889 TOUCH_NOT_OPENED"},
      {{"touch", "stop"}, "2D0000000000000000000000", ZERO + Repeat("00", 8), 0, "ok\n"},
      {{"camera", "query"}, "22000000" + ZERO, "F6D8FFFF" + Repeat("00", 128), 1, "-9994 NOT_SUPPORTED"},
      {{"camera", "self-test"}, "24000000" + Repeat("00", 16), "FAD8FFFF", 1, "the sensor is defective"},
      {{"camera", "delete", "focus"}, "2400000016000000" + Repeat("00", 12), ZERO, 0, "ok\n"},
      {{"camera", "delete", "other"}, "", "", 2, "blemish, focus"},
      {{"camera", "chunk", "blemish"},
       "410000000E000000",
       ZERO + Repeat("00", 1024),
       0,
       "count:  0\nbytes:  \n"},
      {{"camera", "chunk", "stop"},
       "410000000F000000",
       "FBD8FFFF" + Repeat("00", 1024),
       1,
       "no such picture on the phone"},
  };
  for (const Case& tried : cases) Try(tried);
}

// A mistake on the command line ends with status 2 and one sentence, before the port is opened.
TEST(Commands, MistakesAreNamedBeforeAnythingIsSent) {
  const std::pair<std::string, std::string> cases[] = {
      {"clock set 2024-13-01T00:00:00", "time: the month 13 is outside 1 to 12"},
      {"clock set 2038-01-01T00:00:00", "time: the year 2038 is outside 1970 to 2037"},
      {"clock set 2024-01-01T24:00:00", "time: the hour 24 is outside 0 to 23"},
      {"clock set 2024-01-01T00:60:00", "time: the minute 60 is outside 0 to 59"},
      {"clock set 2024-01-01T00:00:60", "time: the second 60 is outside 0 to 59"},
      {"clock set 2023-02-29T00:00:00", "time: the calendar has no such day"},
      {"clock set 2024-02-29T00:00:00 --now", "exclude each other"},
      {"led -1", "colour: '-1' is not off, or a number from 0 to 7"},
      {"display backlight 1000", "backlight: '1000' is not a number from 0 to 100"},
      {"display solid 65536", "or a number from 0 to 65535"},
      {"tone start 999999", "frequency: '999999' is not a number from 0 to 22050 Hz"},
      {"tone start 1 2 --route 4", "route: '4' is not a number from 0 to 3"},
      {"audio-path on 9", "path: '9' is not a number from 1 to 3"},
      {"radio tune 1576", "frequency: '1576' is not a number from 65 to 108 MHz"},
      {"radio scan --from 100 --to 99", "up to a higher one"},
      {"radio scan --from 65000 --to 108000 --step 0.0625", "in at most 10000 steps"},
      {"radio scan --step 0.01", "step: '0.01' is not a number from 0.0625 to 10 MHz"},
      {"radio measure 98.5 --extra 2", "extra: '2'"},
      {"play 11", "clip: '11' is not one of mp3"},
      {"run-in 0", "from 1 to 3600 s"},
      {"pause-link 99999999", "seconds: '99999999' is not a number from 0 to 3600 s"},
      {"at AT --timeout -1", "from 0 to 3600000 ms"},
      {"modem lines on 2 off", "second: '2'"},
      {"key wait --seconds 86401", "from 0 to 86400 s"},
      {"camera capture focus --size 1201x1", "width: '1201' is not a number from 1 to 1200 pixels"},
      {"camera capture focus --size 1x0", "height: '0' is not a number from 1 to 1600 pixels"},
      {"raw 0 --answer 65537", "from 0 to 65536 bytes"},
      {"--timeout 0 ping", "timeout: '0' is not a number from 1 to 3600000 ms"},
      {"clok get", "there is no command clok; did you mean clock?"},
      {"pong --help", "there is no command pong; did you mean ping?"},
      {"--port=x pong", "there is no command pong; did you mean ping?"},
      {"radio tun 98.5", "there is no command radio tun; did you mean tune?"},
      {"--json radio", "radio needs one of "},
      {"--prot x ping", "there is no option --prot; did you mean --port?"},
      {"display solid red --bakclight 1", "there is no option --bakclight; did you mean --backlight?"},
      {"--bad", "there is no option --bad\n"},
      {"camera delete focs", "did you mean focus?"},
      {"--port /dev/null replay /", "/ is a folder, not a file"},
      {"--port /dev/null replay /proc/self/exe", "/proc/self/exe is "},
      {"--port tcp:localhost:99999 ping", "TCP port '99999' is not a number from 1 to 65535"},
  };
  for (const auto& [line, part] : cases) {
    std::istringstream words(line);
    const std::vector<std::string> arguments{std::istream_iterator<std::string>(words), {}};
    const ToolResult result = RunTool(arguments);
    EXPECT_EQ(result.status, 2) << line;
    EXPECT_TRUE(result.errors.starts_with("phonetest: ") && result.errors.find(part) != std::string::npos)
        << line << ": " << result.errors;
  }
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
