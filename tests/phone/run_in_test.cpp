// The run-in cycle: its whole order, from the journal and from what the LCD shows at each pause.
#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <mutex>

#include "simulator/models/front_panel.h"
#include "simulator/models/sound.h"
#include "tests/phone/sound_lines.h"

namespace {

using simulator::FaultCall;
using simulator::Framebuffer;
using simulator::JournalEntry;
using simulator::Sound;

constexpr uint32_t RUN_IN = 0x38;

class RunIn : public PhoneTest {
 protected:
  RunIn() {
    options.instant_sleeps = true;
    Phone().With<Sound>([](Sound& sound) { sound.state.paced = false; });
    Boot();
  }

  void Begin(uint32_t seconds) {
    EXPECT_EQ(AskStatus(RUN_IN, Words({seconds, 1, 2, 3, 4, 5})), SUCCESS);
  }

  bool IsMain(const JournalEntry& entry) {
    return entry.process == Phone().ServerProcess() || entry.kind == JournalKind::Shell;
  }
};

Lines Shown(int level) {
  return {"open /dev/fb/0 rw+cloexec", "open /proc/backlight/lcd w+cloexec",
          fmt::format("value /proc/backlight/lcd \"{}\"", level)};
}

Lines Written(const std::string& command, const std::string& path, int value) {
  return {"shell echo " + command, "open " + path + " w+create+truncate",
          fmt::format("value {} \"{}\\n\"", path, value)};
}

Lines MotorSet(int on) {
  return Written(fmt::format("{} > /proc/gpio/motor", on), "/proc/gpio/motor", on);
}

Lines LedSet(int colour) {
  return Written("0 >  /proc/cLED_wlpg/force_led_off", "/proc/cLED_wlpg/force_led_off", 0) +
         Written("519 >  /proc/cLED_wlpg/timing", "/proc/cLED_wlpg/timing", 519) +
         Written(fmt::format("{} > /proc/cLED_wlpg/color", colour), "/proc/cLED_wlpg/color", colour);
}

// One cycle with its pauses. A pause while a tone plays is listed after all that the tone's thread does.
Lines Cycle(int seconds) {
  const Lines second = {"sleep 1.000"};
  const Lines tone_time = seconds == 0 ? Lines() : Lines{fmt::format("sleep {}.000", seconds)};
  Lines cycle;
  for (int i = 0; i < seconds / 5; ++i) {
    for (int level : {0, 100, 100, 100, 100}) cycle = cycle + Shown(level) + second;
  }
  cycle = cycle + Shown(0) + ToneLines(40, true) + tone_time + ToneLines(40, false) + tone_time;
  for (int i = 0; i < seconds / 2; ++i) cycle = cycle + MotorSet(1) + second + MotorSet(0) + second;
  for (int i = 0; i < seconds / 3; ++i) {
    for (int colour : {1, 2, 4}) cycle = cycle + LedSet(colour) + second;
  }
  return cycle + LedSet(0);
}

Lines Without(const Lines& lines, const std::function<bool(const std::string&)>& dropped) {
  Lines kept;
  for (const std::string& line : lines) {
    if (!dropped(line)) kept.push_back(line);
  }
  return kept;
}

bool IsSleep(const std::string& line) {
  return line.starts_with("sleep");
}

// Of the tone's thread, or of a shell's child.
bool IsElsewhere(const std::string& line) {
  return line.find("/dev/sound") != line.npos || line.find("/dev/misc") != line.npos ||
         line.find("+create") != line.npos || line.starts_with("value");
}

class RunInCycles : public RunIn, public testing::WithParamInterface<int> {};

TEST_P(RunInCycles, FollowTheirOrderForEver) {
  const int seconds = GetParam();
  const Lines expected = Cycle(seconds) + Cycle(seconds) + Shown(0);
  Begin(static_cast<uint32_t>(seconds));

  // The tone's thread runs during the pause; apart from that there is one order. So the journal is checked
  // twice: all of it without the pauses, and the server's own thread with them.
  const Lines all = Without(expected, IsSleep);
  const Lines main = Without(expected, IsElsewhere);
  Lines seen, seen_main;
  EXPECT_TRUE(Eventually(
      [&] {
        seen = LinesSince([](const JournalEntry& entry) { return entry.kind != JournalKind::Sleep; });
        seen_main = LinesSince([this](const JournalEntry& entry) { return IsMain(entry); });
        return seen.size() >= all.size() && seen_main.size() >= main.size();
      },
      30s));
  seen.resize(all.size());
  seen_main.resize(main.size());
  EXPECT_EQ(seen, all);
  EXPECT_EQ(seen_main, main);
  host.Send(Words({0, 0}));
  EXPECT_TRUE(host.IsQuiet()) << "no command is served now";
}

INSTANTIATE_TEST_SUITE_P(Seconds, RunInCycles, testing::Values(0, 1, 2, 3, 5, 6, 11));

TEST_F(RunIn, ShowsFiveColoursAndPlaysTwoTones) {
  // What the LCD shows when the server pauses. The listener is called while the server waits for the pause's
  // end.
  std::mutex mutex;
  std::vector<uint32_t> shown;
  Phone().GetJournal().SetListener([&](const JournalEntry& entry) {
    if (entry.kind != JournalKind::Sleep) return;
    const auto pixels = Phone().With<Framebuffer>([](Framebuffer& lcd) { return lcd.Pixels(); });
    const bool plain = std::ranges::all_of(pixels, [&](uint16_t pixel) { return pixel == pixels[0]; });
    const std::lock_guard lock(mutex);
    shown.push_back(plain ? pixels[0] : 0x10000u);
  });
  // The pauses of the five colours take no time. During those of the two tones their threads play.
  Phone().With<Sound>([](Sound& sound) { sound.state.paced = true; });
  Phone().GetFaults().Add({.call = FaultCall::Sleep, .nth = 6, .times = 2, .delay = 500ms});
  Begin(5);
  EXPECT_TRUE(Appears(LineIs("shell echo 1 > /proc/gpio/motor")));
  Phone().GetJournal().SetListener({});
  {
    const std::lock_guard lock(mutex);
    ASSERT_GE(shown.size(), 7u);
    shown.resize(7);
    EXPECT_EQ(shown, (std::vector<uint32_t>{0, 0xFFFF, 0xF800, 0x07E0, 0x001F, 0, 0}));
  }
  const auto recordings = Phone().With<Sound>([](Sound& sound) { return sound.Recordings(); });
  ASSERT_GE(recordings.size(), 2u);
  for (size_t tone : {0u, 1u}) ExpectTone(ReadRecording(recordings[tone].file), 20000, {2100, 1600, 0});
}

}  // namespace
