// What the simulated phone itself promises, whatever server runs on it.
#include <cerrno>
#include <ctime>
#include <filesystem>

#include "simulator/models/controls.h"
#include "tests/phone/phone_test.h"

using simulator::ALWAYS;
using simulator::FaultCall;
using simulator::PhoneOptions;
using simulator::SimulatedPhone;
using simulator::TextControls;

class SimulatorTest : public PhoneTest {};

TEST_F(SimulatorTest, KeepsOneOrderedJournal) {
  Boot();
  EXPECT_EQ(AskStatus(0x39, Words({0xFFFFFFFF, 0})), SUCCESS);
  // A value that a program wrote before it ended is listed before what comes after that program.
  EXPECT_EQ(LinesSince(), (Lines{
                              "shell echo 0 >  /proc/cLED_wlpg/force_led_off",
                              "open /proc/cLED_wlpg/force_led_off w+create+truncate",
                              "value /proc/cLED_wlpg/force_led_off \"0\\n\"",
                              "shell echo 519 >  /proc/cLED_wlpg/timing",
                              "open /proc/cLED_wlpg/timing w+create+truncate",
                              "value /proc/cLED_wlpg/timing \"519\\n\"",
                              "shell echo -1 > /proc/cLED_wlpg/color",
                              "open /proc/cLED_wlpg/color w+create+truncate",
                              "value /proc/cLED_wlpg/color \"-1\\n\"",
                          }));
  EXPECT_EQ(Phone().With<TextControls>([](TextControls& controls) { return controls.LedColour(); }), "-1");
}

TEST_F(SimulatorTest, FindsDevicesByEveryPathThatLeadsThere) {
  Boot();
  EXPECT_EQ(RunInPhone("cd /proc/gpio; echo 1 > motor; cat motor"), "1\n");
  EXPECT_EQ(
      RunInPhone("ln -s ../proc/gpio /tmp/lines; echo 0 > /tmp/lines/../gpio/motor; cat /tmp/lines/motor"),
      "0\n");
  EXPECT_EQ(
      RunInPhone("exec 3<>/proc/gpio/motor; cat <&3 & sleep 0.1; echo 7 >&3; cat /proc/gpio/motor; kill $!"),
      "0\n7\n");
  EXPECT_EQ(
      RunInPhone(
          "head -c 4 /dev/zero | od -A n -t x1; echo lost > /dev/null; test -e /dev/fb/0 && echo there"),
      " 00 00 00 00\nthere\n");
  // A process's environment is its own business; a signal to everyone leaves out who sends it.
  EXPECT_EQ(RunInPhone("cat /proc/$$/environ 2>/dev/null; cat /proc/self/environ >/dev/null && echo own"),
            "own\n");
  EXPECT_EQ(RunInPhone("trap 'echo hit' URG; kill -URG -1; echo missed"), "missed\n");
  // The PC is out of reach.
  EXPECT_EQ(
      RunInPhone("cat /proc/1/root/etc/hostname /proc/1/environ 2>/dev/null; ls /proc/self/root 2>/dev/null"),
      "");
}

TEST_F(SimulatorTest, FailsTheCallsItIsToldTo) {
  Boot();
  auto& faults = Phone().GetFaults();
  faults.FailOpen("/proc/gpio/motor", EIO, 2, 1);
  EXPECT_EQ(RunInPhone("for n in 1 2 3; do (echo $n > /proc/gpio/motor) 2>/dev/null || echo failed $n; done"),
            "failed 2\n");
  EXPECT_EQ(LinesSince(AtPath("/proc/gpio/motor")),
            (Lines{"open /proc/gpio/motor w+create+truncate", "value /proc/gpio/motor \"1\\n\"",
                   "open /proc/gpio/motor w+create+truncate -> EIO",
                   "open /proc/gpio/motor w+create+truncate", "value /proc/gpio/motor \"3\\n\""}));

  faults.FailRequest("/dev/misc/omap730_gpio", 0x40044F0E, EPERM);
  MarkJournal();
  EXPECT_EQ(AskStatus(0x3F, Words({1, 1, 0})), SUCCESS);
  EXPECT_EQ(
      LinesSince(OfKind({JournalKind::Request})),
      (Lines{"request /dev/misc/omap730_gpio 0x40044F0E -> EPERM",
             "request /dev/misc/omap730_gpio 0x40044F35", "request /dev/misc/omap730_gpio 0x40044F39"}));

  faults.FailExec("/bin/sync", EACCES);
  EXPECT_EQ(RunInPhone("sync 2>/dev/null || echo no sync"), "no sync\n");
  Phone().Root().PutFile("/etc/text", "abcdef");
  faults.ShortenFile("/etc/text", 4);
  EXPECT_EQ(RunInPhone("cat /etc/text"), "abcd");
  faults.Clear();
  EXPECT_EQ(RunInPhone("sync; cat /etc/text"), "abcdef");

  Phone().TakeAway("/proc/gpio/motor");
  EXPECT_EQ(RunInPhone("(echo 1 > /proc/gpio/motor) 2>/dev/null || echo missing; ls /proc/gpio"),
            "missing\ngsm_uart_rx\n");
  Phone().PutBack("/proc/gpio/motor");
  EXPECT_EQ(RunInPhone("echo 1 > /proc/gpio/motor; cat /proc/gpio/motor"), "1\n");
}

TEST_F(SimulatorTest, TakesFaultsFromWords) {
  EXPECT_EQ(Phone().Command({"fault", "open", "/dev/fb/0", "error=ENODEV", "nth=2", "times=always"}), "");
  auto& faults = Phone().GetFaults();
  EXPECT_FALSE(faults.Strike(FaultCall::Open, "/dev/fb/0"));
  EXPECT_FALSE(faults.Strike(FaultCall::Open, "/dev/fb/1"));
  for (int round = 0; round < 3; ++round)
    EXPECT_EQ(faults.Strike(FaultCall::Open, "/dev/fb/0")->error, ENODEV);
  // Of several that fit, the first strikes, from its nth call on and so many times.
  Phone().Command({"fault", "exec", "/bin/*", "error=EIO", "nth=2", "times=2"});
  Phone().Command({"fault", "exec", "/bin/sync", "error=EPERM", "nth=3", "times=2"});
  std::vector<int> errors;
  for (int round = 0; round < 5; ++round) {
    const auto strike = faults.Strike(FaultCall::Exec, "/bin/sync");
    errors.push_back(strike ? strike->error : 0);
  }
  EXPECT_EQ(errors, (std::vector{0, EIO, EIO, EPERM, 0}));
  Phone().Command({"fault", "remove", "2"});
  EXPECT_EQ(faults.List(), (Lines{"open /dev/fb/0 error=ENODEV nth=2 times=always (asked for 4 times)",
                                  "exec /bin/sync error=EPERM nth=3 times=2 (asked for 5 times)"}));
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"fault", "open"},
                                             {"fault", "remove", "4"},
                                             {"fault", "open", "/x"},
                                             {"fault", "open", "/x", "error=EWHAT"},
                                             {"fault", "shut", "/x", "error=EIO"},
                                             {"fault", "open", "/x", "size=many"},
                                             {"unheard-of"},
                                             {}}) {
    EXPECT_THROW(Phone().Command(words), std::invalid_argument);
  }
}

TEST_F(SimulatorTest, LetsSleepsTakeNoTimeOrLong) {
  options.instant_sleeps = true;
  Boot();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(AskStatus(0x3C, Words({10000})), 0);
  EXPECT_TRUE(Appears(LineIs("sleep 10000.000")));
  EXPECT_TRUE(Appears(LineIs("open /dev/usb/tts/0 rw+cloexec")));
  EXPECT_TRUE(StillAnswers());
  EXPECT_EQ(RunInPhone("sleep 5000; usleep 2500"), "");
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Sleep})), (Lines{"sleep 5000.000", "sleep 0.003"}));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 60s);

  Phone().GetFaults().LengthenSleeps(300ms);
  const auto long_start = std::chrono::steady_clock::now();
  EXPECT_EQ(RunInPhone("sleep 0.001"), "");
  EXPECT_GE(std::chrono::steady_clock::now() - long_start, 300ms);
}

TEST_F(SimulatorTest, CountsASleepUntilAMomentFromNow) {
  options.instant_sleeps = true;
  options.server = NativeServer().parent_path() / "driver_client";
  options.server_arguments = {"until", "5000"};
  Phone().Boot();
  ASSERT_TRUE(Phone().WaitForEnd(60s));
  const Lines sleeps = LinesSince(OfKind({JournalKind::Sleep}));
  ASSERT_EQ(sleeps.size(), 1u);
  const double seconds = std::stod(sleeps[0].substr(sleeps[0].find(' ')));
  EXPECT_TRUE(4900 < seconds && seconds <= 5000) << sleeps[0];
}

TEST_F(SimulatorTest, LeavesThePcsClockAlone) {
  Boot();
  const time_t before = time(nullptr);
  RunInPhone("TZ=UTC date -s '2000-01-01 00:00:00' >/dev/null");
  EXPECT_EQ(LinesSince(OfKind({JournalKind::Clock})).size(), 1u);
  EXPECT_NE(LinesSince(OfKind({JournalKind::Clock})).at(0).find("946684800"), std::string::npos);
  EXPECT_GE(time(nullptr), before);
}

TEST_F(SimulatorTest, KeepsThePhonesFilesWithAStateDirectory) {
  options.state_directory = testing::TempDir() + "phone-state-" + std::to_string(getpid());
  Boot();
  RunInPhone("echo kept > /usr/share/kept; echo lost > /tmp/lost");
  EXPECT_THROW(SimulatedPhone(PhoneOptions(options)), std::runtime_error)
      << "one phone at a time has the files";
  DiscardPhone();
  Boot();
  EXPECT_EQ(RunInPhone("cat /usr/share/kept; ls /tmp"), "kept\n");
  EXPECT_TRUE(StillAnswers());
  DiscardPhone();
  std::filesystem::remove_all(options.state_directory);
}

TEST_F(SimulatorTest, SeveralPhonesRunAtOnceAndApart) {
  Boot();
  SimulatedPhone second(options);
  second.Boot();
  HostLine second_host(second.HostPort());
  ASSERT_TRUE(second.GetJournal().WaitFor(LineIs("value /proc/backlight/lcd \"0\""), 0, 60s));
  second_host.Send(Words({0x2B, 1, 0}));
  EXPECT_EQ(second_host.Receive(4), Words({0}));
  EXPECT_TRUE(second.With<TextControls>([](TextControls& controls) { return controls.MotorRuns(); }));
  EXPECT_FALSE(Phone().With<TextControls>([](TextControls& controls) { return controls.MotorRuns(); }));
  second.Stop();
  EXPECT_EQ(second.WaitForEnd(10s)->Text(), "stopped");
  EXPECT_TRUE(StillAnswers());
}

// The leak checker needs the process's memory map and stops its threads, which must not be stuck in a call
// that the simulator holds.
TEST_F(SimulatorTest, APlantedLeakIsReportedUnderIt) {
  options.server = LEAKING_SERVER;
  Phone().GetFaults().LengthenSleeps(600s);
  Phone().Boot();
  const auto end = Phone().WaitForEnd(60s);
  ASSERT_TRUE(end.has_value());
  EXPECT_NE(end->status, 0);
  EXPECT_TRUE(Appears([](const simulator::JournalEntry& entry) {
    return entry.text.find("LeakSanitizer: detected memory leaks") != std::string::npos;
  })) << testing::PrintToString(LinesSince(OfKind({JournalKind::Console})));
}

TEST_F(SimulatorTest, KeepsTheNewestPartOfTheJournalUnderItsOldNumbers) {
  simulator::Journal journal;
  journal.Keep(10);
  std::vector<std::string> heard;
  journal.SetListener([&](const simulator::JournalEntry& entry) { heard.push_back(entry.text); });
  for (int number = 0; number < 25; ++number) journal.Add({.text = std::to_string(number)});
  EXPECT_EQ(heard.size(), 25u);
  EXPECT_EQ(journal.Mark(), 25u);
  EXPECT_EQ(journal.Lines().front(), "event 15");
  EXPECT_EQ(journal.Lines(23), (Lines{"event 23", "event 24"}));
  EXPECT_EQ(journal.WaitFor({}, 3, 0ms)->text, "15");
  EXPECT_FALSE(journal.WaitFor({}, 25, 1ms).has_value());
  const simulator::Journal::Piece piece = journal.Next(3, 4);
  EXPECT_EQ(piece.dropped, 12u);
  EXPECT_EQ(piece.entries.size(), 4u);
  EXPECT_EQ(journal.Next(piece.mark, 1).entries.front().text, "19");
  // Large entries are fewer.
  journal.Keep(1000);
  for (int number = 0; number < 100; ++number) journal.Add({.text = std::string(1 << 20, 'x')});
  EXPECT_EQ(journal.Entries().size() << 20, simulator::Journal::MOST_BYTES);
}
