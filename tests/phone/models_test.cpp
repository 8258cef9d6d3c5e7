// What the models' commands change, what they tell of it, and what the phone's page is told: the state and
// the production records.
#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "simulator/control/streams.h"
#include "simulator/models/bluetooth_tool.h"
#include "simulator/models/front_panel.h"
#include "simulator/models/modem_at_port.h"
#include "simulator/models/picture.h"
#include "simulator/models/radio.h"
#include "simulator/models/sound.h"
#include "simulator/phone_state.h"
#include "tests/phone/phone_test.h"

namespace {

using nlohmann::json;
using simulator::Sound;

// Split at blanks; a low line stands for a blank in a word.
std::vector<std::string> WordsIn(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
  for (std::string& word : words) std::ranges::replace(word, '_', ' ');
  return words;
}

class ModelsTest : public PhoneTest {
 protected:
  ModelsTest() {
    options.server.clear();
    Phone().Boot();
  }
  // "$ LINE" is run by the phone's shell, everything else is a command of a model. Returns its output.
  std::string Do(const std::string& line) {
    return line.starts_with("$ ") ? RunInPhone(line.substr(2)) : Phone().Command(WordsIn(line));
  }
};

struct Told {
  std::vector<const char*> lines;  // done one after the other
  const char* place;               // in the state or the records; empty for the last line's output
  json expected;
};

#define SLEEPER "sleep 100 & p=$!; until grep -q sleep /proc/$p/comm; do :; done; "
const char PROGRAM_IDENTITY[] =
    "$ printf '\\000\\111\\231\\001\\006\\100\\000\\000\\377\\266\\146\\376\\371\\277\\377\\377' >/dev/mtd/4";

const Told TOLD[] = {
    {{"clock stop", "clock 2006-01-15 08:30:00", "$ sleep 1.1", "clock"},
     "",
     "2006-01-15 08:30:00, stopped\n"},
    {{"clock run"}, "", "2006-01-15 08:30:00\n"},
    {{"clock stop", "clock 2005-12-31 23:59:59"}, "/state/clock", "2005-12-31 23:59:59"},
    {{"$ echo 5 > /proc/cLED_wlpg/color"}, "/state/led/colour", "5"},
    {{"$ echo 1 > /proc/cLED_wlpg/force_led_off"}, "/state/led/colour", "0"},
    {{"$ echo 0 > /proc/cLED_wlpg/force_led_off"}, "/state/led/colour", "5"},
    {{"$ echo 519 > /proc/cLED_wlpg/timing"}, "/state/led/timing", "519"},
    {{"$ echo 1 > /proc/gpio/motor"}, "/state/motor", true},
    {{"$ echo 0 > /proc/gpio/motor"}, "/state/motor", false},
    {{"gpio stop-flag 3", "gpio modem-state -1"}, "/state/modem_state", -1},
    {{"gpio"}, "/state/stop_flag", 3},
    {{"card read-only", "card serial 0x12"},
     "/state/card",
     {{"inserted", true}, {"read_only", true}, {"serial", "0x12"}}},
    {{"card writable", "card remove"}, "/state/card/inserted", false},
    {{"unplug"}, "/state/plugged", false},
    {{"plug"}, "/state/plugged", true},
    {{"touch noise 7"}, "/state/touch_noise", 7},
    {{"modem signal 31", "modem sim off"}, "/state/modem/signal", 31},
    {{"modem"}, "/state/modem/sim", false},
    {{"$ " SLEEPER "killall sleep; wait $p; echo $?"}, "", "143\n"},
    {{"$ " SLEEPER "killall -9 sleep; wait $p; echo $?"}, "", "137\n"},
    {{"$ " SLEEPER "killall -USR1 sleep; wait $p; echo $?"}, "", "138\n"},
    {{"$ " SLEEPER "killall -SIGHUP sleep; wait $p; echo $?"}, "", "129\n"},
    {{"otp blank"}, "/records/identity", ""},
    {{PROGRAM_IDENTITY}, "/records/identity", "004999010640000"},
    {{"otp clear 8"}, "/records/identity", "damaged"},
    {{"otp blank"}, "", "blank, programmed 0 times, 0 bits lost\n"},
    {{"$ echo"}, "/records/partition/0/verifies", true},
    {{"flash Partition_Info flip 12"}, "/records/partition/0/verifies", false},
    {{"$ echo"}, "/records/partition/0/word", 0},
    {{"$ echo"},
     "/records/partition/1",
     {{"name", "Partition Info Bak"}, {"verifies", true}, {"check_sum", 13099}, {"word", 1}}},
    {{"flash Factory_Info erase"}, "/records/factory", json::array()},
};

TEST_F(ModelsTest, TellWhatCommandsAndProgramsChange) {
  for (const Told& told : TOLD) {
    std::string output;
    for (const char* line : told.lines) output = Do(line);
    const json all = {{"state", json::parse(simulator::StateAsJson(Phone()))},
                      {"records", json::parse(simulator::RecordsAsJson(Phone()))}};
    EXPECT_EQ(told.place[0] == '\0' ? json(output) : all.at(json::json_pointer(told.place)), told.expected)
        << told.lines.back() << " " << told.place;
  }
}

TEST_F(ModelsTest, LoseTheBitsThatAOneTimeAreaCannotSet) {
  for (const char* line : {"otp blank", "$ printf '\\000' >/dev/mtd/4", "$ printf '\\017' >/dev/mtd/4"})
    Do(line);
  EXPECT_TRUE(Do("otp").ends_with(", 4 bits lost\n")) << Do("otp");
}

// Of what passes, the models keep the newest, however long the phone runs.
TEST_F(ModelsTest, KeepTheNewestOfWhatPassed) {
  static constexpr char TIMES[] = "n=0; while [ $((n += 1)) -le {} ]; do {}; done";
  RunInPhone(fmt::format(TIMES, 25, "/root/bt_cit_test -f6 -a$n >/dev/null"));
  Phone().With<simulator::BluetoothTool>([](simulator::BluetoothTool& tool) {
    ASSERT_EQ(tool.Calls().size(), 20u);
    EXPECT_EQ(tool.Calls().front().line, "/root/bt_cit_test -f6 -a6");
    EXPECT_EQ(tool.Calls().back().printed, "Status=0; ResultA=25\n");
  });
  EXPECT_EQ(RunInPhone(fmt::format(TIMES, 34, "head -c 4 /dev/zero >/dev/sound/dsp") +
                       "; cd /var/recordings; ls | wc -l; ls | head -n 1"),
            "32\nsound-0003.wav\n");
  const auto recordings = Phone().With<Sound>([](const Sound& sound) { return sound.Recordings(); });
  EXPECT_EQ(recordings.size(), 32u);
  EXPECT_EQ(recordings.front().file.filename(), "sound-0003.wav");
  RunInPhone("(" + fmt::format(TIMES, 30, "printf 'at%d\\n\\r' $n") + ") >/dev/csmi_tty/6");
  EXPECT_TRUE(Eventually([this] {
    return Phone().With<simulator::ModemAtPort>([](const simulator::ModemAtPort& modem) {
      return modem.state.lines.size() == 40 && modem.state.lines.front().text != "at1";
    });
  }));
}

TEST_F(ModelsTest, TellWhereTheSoundGoesAndWhetherItIsStereo) {
  struct Mode {
    uint32_t value;
    const char* path;
  };
  for (const auto& [value, path] : {Mode{15, "speaker"}, {48, "earpiece"}, {768, "headset"}, {3, "none"}}) {
    Phone().With<Sound>([value](Sound& sound) {
      sound.state.controls[0x2244] = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8), 0, 0};
      sound.state.controls[0x2242] = {static_cast<uint8_t>(value == 48)};
    });
    const json state = json::parse(simulator::StateAsJson(Phone()));
    EXPECT_EQ(state["sound"]["path"], path);
    EXPECT_EQ(state["sound"]["off"], value == 48) << path;
  }

  struct Reception {
    uint16_t strength;
    uint32_t distance;  // of the frequency from the station's
    bool station_is_stereo, radio_is_stereo, hears_stereo;
    int signal;
  };
  constexpr Reception RECEPTIONS[] = {
      {20000, 0, true, true, true, 20000},   {19999, 0, true, true, false, 19999},
      {26667, 1, true, true, true, 20000},   {26666, 1, true, true, false, 19999},
      {60000, 3, true, true, false, 15000},  {60000, 4, true, true, false, 700},
      {60000, 0, false, true, false, 60000}, {60000, 0, true, false, false, 60000},
  };
  for (const Reception& heard : RECEPTIONS) {
    Phone().With<simulator::Radio>([&heard](simulator::Radio& radio) {
      radio.state.noise = 700;
      radio.state.stereo = heard.radio_is_stereo;
      radio.state.stations = {{1500, heard.strength, heard.station_is_stereo}};
      radio.state.frequency = 1500 - heard.distance;
    });
    const std::string told = Do("radio");
    SCOPED_TRACE(told);
    EXPECT_EQ(told.find(", stereo\n") != std::string::npos, heard.hears_stereo);
    EXPECT_NE(told.find(fmt::format(", signal {},", heard.signal)), std::string::npos);
  }
}

// Two of the panel's ends, as its drawing has them, in the converter's backward counts.
TEST_F(ModelsTest, ReadTheTouchPanelFromEndToEndAndKeys) {
  const auto reading = [](int32_t x, int32_t y) {
    const simulator::TouchReading at = simulator::TouchPanel::ReadingAt(x, y);
    return std::pair(at.x, at.y);
  };
  EXPECT_EQ(reading(0, 0), std::pair(4096u - 257, 4096u - 260));
  EXPECT_EQ(reading(239, 319), std::pair(4096u - 3812, 4096u - 3845));
  EXPECT_EQ(Do("key dead power"), "key 0x00740001 is dead\n");
  EXPECT_EQ(Do("key power"), "key 0x00740001 is dead\n");
  EXPECT_EQ(Do("key exit"), "key 0x00AE0001\n");
  EXPECT_EQ(Do("$ head -c 32 /dev/input/event0 | od -A n -t x4 -v | sed 's/.* //'"), "00ae0001\n00000000\n")
      << "pressed and released";
}

class ExchangesTest : public PhoneTest {
 protected:
  json Exchanges(int since = 0) {
    return json::parse(Phone().Command({"exchanges", std::to_string(since)}));
  }
};

TEST_F(ExchangesTest, AreListedWithWhatTheyMean) {
  Boot();
  EXPECT_EQ(AskStatus(0x39, Words({4, 0})), SUCCESS);
  const json led = Exchanges().back();
  EXPECT_EQ(led["name"], "LED");
  EXPECT_EQ(led["request"]["bytes"], "0400000000000000");
  EXPECT_EQ(led["request"]["fields"].size(), 1u) << "without the unused word";
  EXPECT_EQ(led["request"]["fields"][0]["value"], "4");
  EXPECT_EQ(led["answer"]["fields"][0]["value"], "0");
  EXPECT_TRUE(led["whole"] == true && led["failed"] == false && !led.contains("status_meaning"));

  Phone().Command({"fault", "request", "/dev/misc/rtc", "error=EIO", "delay=300"});
  Ask(0x2E, Words({0}), 36);
  const json clock = Exchanges(led["number"]).at(0);
  EXPECT_EQ(clock["name"], "read clock");
  EXPECT_EQ(clock["failed"], true);
  EXPECT_EQ(clock["answer"]["fields"][0]["value"], "-9991");
  EXPECT_NE(clock["status_meaning"].get<std::string>().find("clock"), std::string::npos) << clock;
  EXPECT_GE(clock["milliseconds"], 290.0);
  EXPECT_GT(clock["time"], led["time"]);

  host.Send(Words({0x12}));
  EXPECT_TRUE(Eventually([&] { return Exchanges().back()["code"] == 0x12; }));
  EXPECT_FALSE(Exchanges().back().contains("name"));
  EXPECT_TRUE(host.IsQuiet(1200ms)) << "what follows is drained";

  // A cable that is drawn ends what was begun.
  host.Send({0x39, 0});
  Phone().Command({"replug"});
  EXPECT_TRUE(Eventually([this] {
    host.Send(Words({0, 0}));
    return host.Receive(4, 300ms) == Words({1});
  }));
  EXPECT_EQ(Exchanges().back()["name"], "ping");
  for (int count = 0; count < 205; ++count) {
    host.Send(Words({0, 0}));
    EXPECT_EQ(host.Receive(4), Words({1}));
  }
  EXPECT_EQ(Exchanges().size(), 200u);
  EXPECT_EQ(Exchanges(Exchanges().back()["number"].get<int>() - 3).size(), 3u);
}

TEST(ModelsPictures, AreResizedByTheCoveredAreaAndRounded) {
  struct Resized {
    unsigned width, height;
    std::vector<uint8_t> reds;
    unsigned new_width, new_height;
    std::vector<uint8_t> expected;
  };
  const Resized CASES[] = {
      {2, 1, {10, 11}, 1, 1, {11}},           {1, 2, {10, 11}, 1, 1, {11}},
      {3, 1, {0, 100, 200}, 2, 1, {33, 167}}, {1, 3, {0, 100, 200}, 1, 2, {33, 167}},
      {1, 1, {7}, 2, 2, {7, 7, 7, 7}},        {2, 2, {0, 0, 100, 200}, 1, 2, {0, 150}},
  };
  for (const Resized& each : CASES) {
    simulator::Picture picture = {each.width, each.height, {}};
    for (const uint8_t red : each.reds) picture.levels.insert(picture.levels.end(), {red, 0, 255});
    std::vector<uint8_t> expected;
    for (const uint8_t red : each.expected) expected.insert(expected.end(), {red, 0, 255});
    EXPECT_EQ(simulator::Resize(picture, each.new_width, each.new_height).levels, expected);
  }
}

// Listeners get signed samples of 16 bits, whatever the phone plays.
TEST(ModelsSound, OfEightBitsIsWidened) {
  const auto samples_of = [](uint16_t bits, const Bytes& sound) {
    const simulator::SoundPiece head = {8000, 1, bits};
    Bytes message(sizeof head);
    memcpy(message.data(), &head, sizeof head);
    simulator::SoundPiece piece = {};
    const std::vector<int16_t> samples = simulator::SamplesOf(message + sound, piece);
    EXPECT_EQ(piece.sample_rate, 8000u);
    return samples;
  };
  EXPECT_EQ(samples_of(8, {0, 64, 128, 255}), (std::vector<int16_t>{-32768, -16384, 0, 32512}));
  EXPECT_EQ(samples_of(16, {0x34, 0x12, 0x00, 0x80}), (std::vector<int16_t>{0x1234, -32768}));
  simulator::SoundPiece piece = {};
  EXPECT_TRUE(simulator::SamplesOf(Bytes(3), piece).empty());
}

}  // namespace
