// The models refuse what the drivers would: a fake that takes everything lets a wrong server pass. A program
// of the tests is the caller.
#include <fmt/format.h>

#include "simulator/models/flash.h"
#include "tests/phone/every_command.h"
#include "tests/phone/phone_test.h"
#include "tests/phone/processes.h"

namespace {

using simulator::FlashPartitions;

// A word, low byte first, as hexadecimal text, and zero bytes.
std::string Word(uint32_t word) {
  return fmt::format("{:02X}{:02X}{:02X}{:02X}", word & 0xFF, word >> 8 & 0xFF, word >> 16 & 0xFF,
                     word >> 24);
}
std::string Zeros(size_t bytes) {
  return std::string(2 * bytes, '0');
}
std::string Clock(uint32_t second, uint32_t hour, uint32_t day, uint32_t month) {
  return Word(second) + Word(0) + Word(hour) + Word(day) + Word(month) + Word(106) + Zeros(12);
}

const std::string GET_FORMAT = "C0CC5604", SET_CONTROL = "4008561C";
const std::string PREPARE = Word(0xFF05) + Word(1000), START = Word(0xFF00) + Word(1);
const std::string RATE = "C0045002", CHANNELS = "C0045006", FORMAT = "C0045005";
const std::string SET_FREQUENCY = "4004760F", SET_AUDIO = "40287611", GET_TUNER = "C0347604";
const std::string AUDIO_START = Zeros(4) + "1027" + Zeros(2);  // volume 10000, no bass

struct Attempt {
  const char* what;
  std::vector<std::string> arguments;  // of the client
  std::string printed;
};
const Attempt ATTEMPTS[] = {
    {"a camera that was not prepared",
     {"/dev/v4l2/capture0", SET_CONTROL, START, SET_CONTROL, PREPARE},
     "EINVAL EINVAL "},
    {"a dirty format record",
     {"/dev/v4l2/capture0", GET_FORMAT, Word(1) + Zeros(200), GET_FORMAT, Word(1) + Word(5) + Zeros(196),
      GET_FORMAT, Word(1) + Zeros(199) + "01", GET_FORMAT, Word(2) + Zeros(200)},
     "0 EINVAL EINVAL EINVAL "},
    {"a rate, channels and format that no codec has",
     {"w:/dev/sound/dsp", RATE, Word(44100), RATE, Word(44101), RATE, Word(0), CHANNELS, Word(1), CHANNELS,
      Word(3), FORMAT, Word(8), FORMAT, Word(16), FORMAT, Word(24), "C0045099", Word(1)},
     "0 EINVAL EINVAL 0 EINVAL 0 0 EINVAL EINVAL "},
    {"no microphone", {"/dev/sound/dsp"}, "ENODEV "},
    {"mixer values out of range",
     {"/dev/sound/mixer", "2242", "02",   "2244", Word(47), "2245", Word(256), "2246", "04000005", "2246",
      "00040005",         "2248", "0210", "2252", Word(4),  "2271", Word(2),   "2280", Word(2),    "2244",
      Word(48),           "2299", Word(0)},
     "EINVAL EINVAL EINVAL EINVAL EINVAL EINVAL EINVAL EINVAL EINVAL 0 EINVAL "},
    {"a frequency out of the band",
     {"/dev/v4l/radio0", SET_FREQUENCY, Word(1400), SET_FREQUENCY, Word(1399), SET_FREQUENCY, Word(1729)},
     "0 EINVAL EINVAL "},
    {"dirty radio records",
     {"/dev/v4l/radio0", SET_AUDIO, AUDIO_START + Zeros(24) + "0200" + Zeros(6), SET_AUDIO,
      AUDIO_START + Zeros(8) + "41" + Zeros(15) + "0200" + Zeros(6), GET_TUNER, Zeros(52), GET_TUNER,
      Zeros(51) + "01", GET_TUNER, Word(1) + Zeros(48)},
     "0 EINVAL 0 EINVAL EINVAL "},
    {"a time that no clock has",
     {"/dev/misc/rtc", "4024700A", Clock(30, 8, 15, 10), "4024700A", Clock(60, 8, 15, 10), "4024700A",
      Clock(0, 24, 15, 10), "4024700A", Clock(0, 0, 31, 3), "4024700A", Clock(0, 0, 1, 12), "7099", Word(0)},
     "0 EINVAL EINVAL EINVAL EINVAL ENOTTY "},
    {"a request that the LCD does not have", {"/dev/fb/0", "4601", Zeros(64)}, "ENOTTY "},
    {"a modem record that is dirty",
     {"/dev/csmi_tty/1", "5", Word(5) + Zeros(11) + "01", "99", Word(0x99)},
     "EINVAL ENOTTY "},
    {"a control value that no modem has",
     {"/dev/csmi_tty/1", "5", Word(5) + Word(1) + Zeros(8), "5", Word(5) + Word(2) + Zeros(8)},
     "0 EINVAL "},
    {"lines that the GPIO driver does not have",
     {"/dev/misc/omap730_gpio", "40044F28", "", "40044F2A", "", "40044F40", "", "80044F3E", ""},
     "0 EINVAL EINVAL EINVAL "},
    {"a touch panel that is written", {"w:/dev/touchscreen/tsc2046"}, "EACCES "},
    {"a keypad that is written", {"w:/dev/input/event0"}, "EACCES "},
};

class StrictnessTest : public PhoneTest {};

TEST_F(StrictnessTest, ModelsRefuseWhatNoDriverTakes) {
  options.server = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "driver_client";
  for (const Attempt& tried : ATTEMPTS) {
    DiscardPhone();
    options.server_arguments = tried.arguments;
    Phone().Boot();
    EXPECT_TRUE(Phone().WaitForEnd(60s));
    EXPECT_EQ(Phone().ConsoleText(), tried.printed + "\n") << tried.what;
  }
}

TEST_F(StrictnessTest, ToolAndMemoryCardRefuseWhatTheyCannotDo) {
  options.server.clear();
  Phone().Boot();
  Phone().Command({"card", "remove"});
  Phone().RunShell(
      "for switches in '' -f2 '-f2 -a1' '-f3 -a1' '-f3 -a1 -bx' '-f3 -a1 -b 2' '-f4 -a00025B0AFF10 -b2 "
      "-c414' "
      "'-f4 -a00025b0aff10 -b1 -c41' '-f4 -a00025B0AFF10 -b17 -c41' '-f5 -a00025B0AFF10 -b12345' '-f6 -a' "
      "-f8;"
      "do /root/bt_cit_test $switches 2> /dev/null; done;"
      "(echo x > /proc/bus/mmc/device) 2> /dev/null || echo the list;"
      "(echo x > /mnt/fat/file) 2> /dev/null || echo no card");
  EXPECT_TRUE(Eventually([this] { return Phone().ConsoleText().ends_with("no card\n"); }));
  EXPECT_EQ(Phone().ConsoleText(), "Status=0; ResultA=00:02:5B:0A:FF:10\nthe list\nno card\n");
}

// The server erases what it writes.
TEST_F(StrictnessTest, WritesToFlashThatIsNotErasedAreCounted) {
  options.instant_sleeps = true;
  Boot();
  const auto count = [this] {
    return Phone().With<FlashPartitions>(
        [](FlashPartitions& flash) { return flash.GetState().unerased_writes; });
  };
  for (const uint32_t code :
       {protocol::SET_PARTITION_WORD, protocol::WRITE_FACTORY_INFO, protocol::WRITE_BLUETOOTH_ADDRESS,
        protocol::WRITE_BLUETOOTH_ADDRESS_EXTENDED}) {
    const auto& command = *std::ranges::find(protocol::COMMANDS, code, &protocol::CommandDescription::code);
    EXPECT_EQ(AskStatus(code, RequestFor(command)), SUCCESS);
    EXPECT_EQ(AskStatus(code, RequestFor(command)), SUCCESS);
  }
  EXPECT_EQ(count(), 0);
  Phone().Root().PutFile("/home/utils/eraseall", "#!/bin/sh\n", 0755);
  EXPECT_EQ(AskStatus(protocol::WRITE_FACTORY_INFO, Bytes(128)), SUCCESS) << "its status is the write's";
  EXPECT_EQ(count(), 1);
}

}  // namespace
