// Settings and files: factory reset, versions, calibration file, and stopping the user interface.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "simulator/models/programs.h"
#include "tests/phone/phone_test.h"

namespace {

const Bytes IGNORED = Words({0});
const std::string SETUP = "/usr/share/config/setup/";
constexpr char CALL_METER[] = "/usr/share/config/calllog/callmeter.log";
constexpr char CALIBRATION[] = "/usr/share/app/calibration.dat";

class SettingsTest : public PhoneTest {
 protected:
  SettingsTest() {
    options.instant_sleeps = true;
  }
  simulator::RootDirectory& Root() {
    return Phone().Root();
  }
};

TEST_F(SettingsTest, ResetsToFactorySettings) {
  const std::string photos = "/usr/share/usr_data/Photos/";
  for (const std::string& path :
       {photos + "BlemishTest.jpg", photos + "FocusTest.jpg", photos + "own.jpg", SETUP + "TPSound1.pcm",
        SETUP + "HardKeySound1.pcm", SETUP + "TPSound.pcm"}) {
    Root().PutFile(path, "old");
  }
  Root().PutFile(SETUP + "setup.conf", "changed");
  Root().PutFile(SETUP + "recent.list", "left behind");
  Root().PutFile(CALL_METER, "0123456789abcdef rest");
  Boot();
  EXPECT_EQ(AskStatus(0x03, IGNORED), 0);

  EXPECT_EQ(
      LinesSince(OfKind({JournalKind::Shell}) || AtPath(CALL_METER)),
      (Lines{"shell rm -f /usr/share/usr_data/Photos/BlemishTest.jpg", "shell sync",
             "shell rm -f /usr/share/usr_data/Photos/FocusTest.jpg", "shell sync",
             "shell rm -f /usr/share/config/setup/TPSound1.pcm", "shell sync",
             "shell cp -f /usr/share/config/setup/Touch_Scr_Click.pcm /usr/share/config/setup/TPSound.pcm",
             "shell sync", "shell rm -f /usr/share/config/setup/HardKeySound1.pcm", "shell sync",
             "shell cp -f /usr/share/config/setup/Water.pcm /usr/share/config/setup/HardKeySound.pcm",
             "shell sync",
             "shell cp -f /usr/share/config/setup/PlugSound.pcm /usr/share/config/setup/ChargerPlugSound.pcm",
             "shell sync", std::string("open ") + CALL_METER + " rw",
             "shell chmod a+x /usr/share/config/setup/setup_reset.sh",
             "shell /usr/share/config/setup/setup_reset.sh",
             "shell chmod a+x /usr/share/config/setup/setup_clear.sh",
             "shell /usr/share/config/setup/setup_clear.sh"}));

  EXPECT_EQ(Root().ListDirectory(photos), Lines{"own.jpg"});
  EXPECT_EQ(Root().ReadFile(SETUP + "TPSound.pcm"), Root().ReadFile(SETUP + "Touch_Scr_Click.pcm"));
  EXPECT_EQ(Root().ReadFile(SETUP + "HardKeySound.pcm"), Root().ReadFile(SETUP + "Water.pcm"));
  EXPECT_EQ(Root().ReadFile(SETUP + "ChargerPlugSound.pcm"), Root().ReadFile(SETUP + "PlugSound.pcm"));
  EXPECT_FALSE(Root().Exists(SETUP + "TPSound1.pcm"));
  EXPECT_FALSE(Root().Exists(SETUP + "HardKeySound1.pcm"));
  EXPECT_EQ(Root().ReadFile(CALL_METER), std::string(12, '\0') + "cdef rest");
  EXPECT_EQ(Root().ReadFile(SETUP + "setup.conf"), Root().ReadFile(SETUP + "setup.default"))
      << "the script ran";
  EXPECT_FALSE(Root().Exists(SETUP + "recent.list"));
}

TEST_F(SettingsTest, ResetsWhatThereIs) {
  Root().PutFile(CALL_METER, "short");
  std::filesystem::remove_all(Root().Outside("/usr/share/usr_data"));
  Boot();
  EXPECT_EQ(AskStatus(0x03, IGNORED), 0);
  EXPECT_EQ(Root().ReadFile(CALL_METER), std::string(12, '\0'));

  std::filesystem::remove_all(Root().Outside(SETUP));
  std::filesystem::remove(Root().Outside(CALL_METER));
  EXPECT_EQ(AskStatus(0x03, IGNORED), 0) << "the failure of a shell command is not reported";
  EXPECT_FALSE(Root().Exists(CALL_METER));
}

TEST_F(SettingsTest, ReadsTheFirstWordOfEachVersion) {
  Boot();
  const auto padded = [](const std::string& word) {
    Bytes answer = Words({0}) + FromText(word);
    answer.resize(132);
    return answer;
  };
  EXPECT_EQ(Ask(0x0A, IGNORED, 132), padded("R1.2"));
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Shell})), Lines{"shell cat /etc/version"});
  MarkJournal();
  EXPECT_EQ(Ask(0x0F, IGNORED, 132), padded("C1.0.4"));
  EXPECT_EQ(Ask(0x10, IGNORED, 132), padded("RES-0603"));
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Shell})),
            (Lines{"shell cat /usr/share/config/version", "shell cat /root/resource/version"}));

  const std::string longest(128, 'V');
  const std::pair<std::string, std::string> CASES[] = {{"", ""},
                                                       {" \n\t\n", ""},
                                                       {"\n \tword\x01\xFF more", "word\x01\xFF"},
                                                       {longest.substr(1), longest.substr(1)},
                                                       {longest, longest},
                                                       {longest + "X", longest},
                                                       {longest + " X", longest}};
  for (const auto& [content, word] : CASES) {
    SCOPED_TRACE(content);
    for (const auto& [code, path] :
         {std::pair(0x0A, "/etc/version"), std::pair(0x0F, "/usr/share/config/version"),
          std::pair(0x10, "/root/resource/version")}) {
      Root().PutFile(path, content);
      EXPECT_EQ(Ask(static_cast<uint32_t>(code), IGNORED, 132), padded(word));
    }
  }
  for (const char* path : {"/etc/version", "/usr/share/config/version", "/root/resource/version"}) {
    Phone().TakeAway(path);
  }
  for (const uint32_t code : {0x0A, 0x0F, 0x10}) EXPECT_EQ(Ask(code, IGNORED, 132), padded(""));
}

TEST_F(SettingsTest, WritesAndRemovesTheCalibration) {
  Boot();
  Root().PutFile(CALIBRATION, std::string(200, 'x'));
  EXPECT_EQ(AskStatus(0x45, Words({0x80000000})), 0);
  EXPECT_EQ(Root().ReadFile(CALIBRATION), "11, 4384, -1079831, 5849, 11, -1407808, 65536\n");
  EXPECT_EQ(AskStatus(0x45, Words({0})), 0);
  EXPECT_FALSE(Root().Exists(CALIBRATION));
  EXPECT_EQ(AskStatus(0x45, Words({0})), 0) << "there was nothing to remove";
  const std::string remove = std::string("shell rm -f ") + CALIBRATION;
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Shell}) || (OfKind({JournalKind::Open}) && AtPath(CALIBRATION))),
            (Lines{std::string("open ") + CALIBRATION + " w+create+truncate", "shell sync", remove,
                   "shell sync", remove, "shell sync"}));

  std::filesystem::remove(Root().Outside("/usr/share/app"));
  MarkJournal();
  EXPECT_EQ(AskStatus(0x45, Words({1})), -9989);
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Shell})), Lines{}) << "without sync";
  EXPECT_TRUE(StillAnswers());
}

// Clock ticks (of 10 ms) that a process has used.
uint64_t ProcessorTime(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string text{std::istreambuf_iterator<char>(file), {}};
  std::istringstream fields(text.substr(text.rfind(')') + 2));
  std::string skipped;
  for (int field = 3; field < 14; ++field) fields >> skipped;
  uint64_t user = 0;
  uint64_t system = 0;
  fields >> user >> system;
  return user + system;
}

TEST_F(SettingsTest, StopsTheUserInterfaceAndNeverAnswersAgain) {
  Boot();
  const auto launchers = [&] {
    return Phone().With<simulator::Launcher>(
        [](simulator::Launcher& launcher) { return launcher.Running(); });
  };
  Phone().With<simulator::Launcher>([](simulator::Launcher& launcher) { launcher.Start(); });
  ASSERT_TRUE(Appears(LineIs("open /dev/launcher_events rw+create")));
  ASSERT_EQ(launchers(), 1u);
  MarkJournal();
  SendCommand(0x0D, IGNORED);
  ASSERT_TRUE(Appears(LineIs("value /proc/backlight/lcd \"0\\n\"")));
  EXPECT_TRUE(Eventually([&] { return launchers() == 0; }))
      << "the phone notices an ended program a moment later";
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Shell, JournalKind::Value})),
            (Lines{"shell killall -9 Launcher.elf", "shell echo 0 > /proc/backlight/lcd",
                   "value /proc/backlight/lcd \"0\\n\""}));
  const uint64_t before = ProcessorTime(Phone().ServerProcess());
  host.Send(Words({0, 0}));
  EXPECT_TRUE(host.IsQuiet(500ms));
  EXPECT_LE(ProcessorTime(Phone().ServerProcess()), before + 2) << "waits without working";
  kill(Phone().ServerProcess(), SIGHUP);
  host.Send(Words({0, 0}));
  EXPECT_TRUE(host.IsQuiet(300ms)) << "a hang-up does not end the wait";
  EXPECT_TRUE(Phone().IsRunning());
}

}  // namespace
