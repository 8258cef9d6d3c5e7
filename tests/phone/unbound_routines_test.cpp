// Maintenance routines that no command reaches, run by a program of their own instead of the server.
#include <filesystem>

#include "simulator/models/real_time_clock.h"
#include "tests/phone/phone_test.h"

namespace {

using simulator::RealTimeClock;

const std::string SETUP = "/usr/share/config/setup/";

class UnboundRoutinesTest : public PhoneTest {
 protected:
  UnboundRoutinesTest() {
    options.server = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "unbound_routines";
  }

  // Runs a routine to its end on a new phone, which `furnish` prepares, and returns what it printed: its
  // result.
  std::string Run(const std::vector<std::string>& arguments, const std::function<void()>& furnish = {}) {
    DiscardPhone();
    options.server_arguments = arguments;
    if (furnish) furnish();
    Phone().Boot();
    EXPECT_TRUE(Phone().WaitForEnd(60s));
    return Phone().ConsoleText();
  }
  Lines Shell() {
    return LinesSince(OfKind({JournalKind::Shell}));
  }
};

TEST_F(UnboundRoutinesTest, ChooseSounds) {
  const auto put_sounds = [&] {
    for (const char* name : {"TPSound", "TPSound1", "HardKeySound", "HardKeySound1", "ChargerPlugSound"}) {
      Phone().Root().PutFile(SETUP + name + ".pcm", "old");
    }
  };
  const auto copy = [](const std::string& source, const std::string& target) {
    return "shell cp -f " + SETUP + source + " " + SETUP + target;
  };
  const auto remove = [](const std::string& name) { return "shell rm -f " + SETUP + name; };
  const std::string touch = "TPSound.pcm";
  const std::string key = "HardKeySound.pcm";
  const std::string charger = "ChargerPlugSound.pcm";
  const struct {
    std::vector<std::string> arguments;
    std::string target;
    std::string source;  // of what is there afterwards, if any
    std::string stale;   // name that is removed first
  } CASES[] = {
      {{"touch-sound", "1"}, touch, "Touch_Scr_Click.pcm", "TPSound1.pcm"},
      {{"touch-sound", "2"}, touch, "Touch_Scr_Tone.pcm", "TPSound1.pcm"},
      {{"touch-sound", "0"}, touch, "", "TPSound1.pcm"},
      {{"touch-sound", "3"}, touch, "", "TPSound1.pcm"},
      {{"key-sound", "-1"}, key, "Water.pcm", "HardKeySound1.pcm"},
      {{"key-sound", "0"}, key, "", "HardKeySound1.pcm"},
      {{"charger-sound", "7"}, charger, "PlugSound.pcm", ""},
      {{"charger-sound", "0"}, charger, "", ""},
  };
  for (const auto& row : CASES) {
    SCOPED_TRACE(row.arguments[0] + " " + row.arguments[1]);
    EXPECT_EQ(Run(row.arguments, put_sounds), "0\n");
    Lines lines;
    if (!row.stale.empty()) lines = {remove(row.stale), "shell sync"};
    lines.push_back(row.source.empty() ? remove(row.target) : copy(row.source, row.target));
    lines.push_back("shell sync");
    EXPECT_EQ(Shell(), lines);
    EXPECT_FALSE(!row.stale.empty() && Phone().Root().Exists(SETUP + row.stale));
    ASSERT_EQ(Phone().Root().Exists(SETUP + row.target), !row.source.empty());
    if (row.source.empty()) continue;
    EXPECT_EQ(Phone().Root().ReadFile(SETUP + row.target), Phone().Root().ReadFile(SETUP + row.source));
  }
}

TEST_F(UnboundRoutinesTest, GiveTheStatusOfTheLastSync) {
  const auto lose_sync = [&] { Phone().TakeAway("/bin/sync"); };
  for (const char* sound : {"touch-sound", "key-sound", "charger-sound"}) {
    EXPECT_EQ(Run({sound, "1"}, lose_sync), "32512\n") << "status 127, as wait returns it";
    EXPECT_EQ(Shell().back(), "shell sync");
  }
}

TEST_F(UnboundRoutinesTest, ReadAllVersions) {
  EXPECT_EQ(Run({"versions"}), "R1.2 C1.0.4 RES-0603\n0\n");
  EXPECT_EQ(Shell(), (Lines{"shell cat /etc/version", "shell cat /usr/share/config/version",
                            "shell cat /root/resource/version"}));
}

// 1 January 2000, in the driver's fields (the year from 1900) and in seconds since 1970.
TEST_F(UnboundRoutinesTest, ResetBothClocks) {
  const std::string set =
      "request /dev/misc/rtc 0x4024700A in "
      "000000000000000000000000010000000000000064000000000000000000000000000000";
  const auto requests = [&] {
    return LinesSince(OfKind({JournalKind::Open, JournalKind::Request}) && Below("/dev/misc"));
  };
  const auto system_clock = [&] {
    const Lines lines = LinesSince(OfKind({JournalKind::Clock}));
    return lines.size() == 1 && lines[0].find(" 946684800.000000") != std::string::npos;
  };
  EXPECT_EQ(Run({"reset-clock"}), "0\n");
  ASSERT_EQ(requests().size(), 3u);
  EXPECT_EQ(requests()[0], "open /dev/misc/rtc w");
  EXPECT_TRUE(requests()[1].starts_with("request /dev/misc/rtc 0x80247009 out "));
  EXPECT_EQ(requests()[2], set);
  EXPECT_TRUE(system_clock());

  const auto break_clock = [&] {
    Phone().With<RealTimeClock>([](RealTimeClock& clock) { clock.state.error = EIO; });
  };
  EXPECT_EQ(Run({"reset-clock"}, break_clock), "0\n");
  EXPECT_EQ(requests(), (Lines{"open /dev/misc/rtc w", "request /dev/misc/rtc 0x80247009 -> EIO"}));
  EXPECT_TRUE(system_clock());

  EXPECT_EQ(Run({"reset-clock"}, [&] { Phone().TakeAway("/dev/misc/rtc"); }), "0\n");
  EXPECT_EQ(requests(), Lines{"open /dev/misc/rtc w -> ENOENT"});
  EXPECT_TRUE(system_clock());
}

}  // namespace
