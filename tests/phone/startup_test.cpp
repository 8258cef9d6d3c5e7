// Start-up and run modes: what the server does to the phone before it serves, in order.
#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "simulator/models/controls.h"
#include "simulator/models/programs.h"
#include "simulator/supervisor/phone_processes.h"
#include "tests/phone/phone_test.h"

namespace {

class StartupTest : public PhoneTest {
 protected:
  StartupTest() {
    options.instant_sleeps = true;
  }

  // The server's descriptor for a device, reopened here; -1 if it holds none.
  posix::FileDescriptor ServersDescriptor(const std::string& target_part) {
    for (const auto& entry : std::filesystem::directory_iterator(Proc() / "fd")) {
      std::error_code error;
      const auto target = std::filesystem::read_symlink(entry, error).string();
      if (target.find(target_part) != std::string::npos) {
        return posix::FileDescriptor(open(entry.path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK));
      }
    }
    return {};
  }

  std::filesystem::path Proc() {
    return "/proc/" + std::to_string(Phone().ServerProcess());
  }
};

const Lines GADGET_COMMANDS = {
    "shell ifconfig usbl0 down", "shell rmmod omap_bi",    "shell rmmod net_fd",
    "shell rmmod serial_fd",     "shell rmmod usbdcore",   "shell insmod usbdcore.o",
    "shell insmod serial_fd.o",  "shell insmod omap_bi.o",
};

// What the server itself does: neither what its shells start nor what its libraries open.
simulator::JournalFilter ByTheServer() {
  return OfKind({JournalKind::Request, JournalKind::Shell, JournalKind::Value, JournalKind::Sleep}) ||
         (OfKind({JournalKind::Open}) && (Below("/dev/misc") || Below("/dev/usb") || Below("/dev/fb") ||
                                          Below("/proc/vantu_pm") || Below("/proc/backlight")));
}

TEST_F(StartupTest, PreparesThePhoneInOrderAndHoldsStandbyOff) {
  const auto held = [](const simulator::TextControls& controls) { return controls.StandbyHeld(); };
  EXPECT_FALSE(Phone().With<simulator::TextControls>(held));
  Boot();
  EXPECT_TRUE(Phone().With<simulator::TextControls>(held));
  EXPECT_EQ(Phone().With<simulator::Tools>([](const simulator::Tools& tools) { return tools.state.modules; }),
            (std::set<std::string>{"omap_bi", "serial_fd", "usbdcore"}));
  EXPECT_EQ(Phone().GetJournal().Lines(0, ByTheServer()),
            (Lines{"open /dev/misc/omap730_gpio rw+cloexec", "request /dev/misc/omap730_gpio 0x40044F3B",
                   "open /dev/misc/omap730_gpio rw+cloexec", "request /dev/misc/omap730_gpio 0x40044F29"} +
             GADGET_COMMANDS +
             Lines{"open /dev/usb/tts/0 rw+cloexec", "open /proc/vantu_pm/prohibit_standby rw+cloexec",
                   "open /dev/fb/0 rw+cloexec", "open /proc/backlight/lcd w+cloexec",
                   "value /proc/backlight/lcd \"0\""}));
}

TEST_F(StartupTest, SetsTheHostPortsLineAndMakesItNonBlocking) {
  Boot();
  const auto port = ServersDescriptor("/dev/pts/");
  ASSERT_GE(port.Get(), 0);
  termios line{};
  ASSERT_EQ(tcgetattr(port.Get(), &line), 0);
  ExpectServersSettings(line);
}

TEST_F(StartupTest, EndsWith247WithoutTheSerialDevice) {
  Phone().TakeAway("/dev/usb/tts/0");
  Phone().Boot();
  const auto end = Phone().WaitForEnd(10s);
  ASSERT_TRUE(end);
  EXPECT_EQ(end->reason, simulator::PhoneEnd::Reason::ServerExited);
  EXPECT_EQ(end->status, 247);
  EXPECT_EQ(Phone().ConsoleText(), "");
  const Lines lines = Phone().GetJournal().Lines(0, ByTheServer());
  EXPECT_EQ(lines.back(), "open /dev/usb/tts/0 rw+cloexec -> ENOENT") << "nothing follows the failed open";
  EXPECT_EQ(Phone().GetJournal().Lines(0, OfKind({JournalKind::Shell})), GADGET_COMMANDS);
}

TEST_F(StartupTest, GoesOnWithoutGpioStandbyOrDisplay) {
  for (const auto* path : {"/dev/misc/omap730_gpio", "/proc/vantu_pm/prohibit_standby", "/dev/fb/0"}) {
    Phone().TakeAway(path);
  }
  Phone().Boot();
  host = HostLine(Phone().HostPort());
  ASSERT_TRUE(Appears(LineIs("open /dev/fb/0 rw+cloexec -> ENOENT"))) << "the last step of start-up";
  EXPECT_TRUE(StillAnswers());
  EXPECT_TRUE(Phone().GetJournal().Lines(0, OfKind({JournalKind::Request})).empty());
  EXPECT_TRUE(Phone().GetJournal().Lines(0, AtPath("/proc/backlight/lcd")).empty())
      << "without a screen the backlight is not changed";
}

TEST_F(StartupTest, EveryOtherCommandLineRunsTheServer) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"-t"}, {"-g", "1"}, {"-c"}, {"-cc", "0"}, {"-gg"}, {"-c", "0", "1"}, {""}}) {
    DiscardPhone();
    options.server_arguments = arguments;
    Boot();
    EXPECT_TRUE(StillAnswers()) << testing::PrintToString(arguments);
  }
}

// A device must not become descriptor 0, 1 or 2, which the modem routines and the console would mistake. So a
// shell of the phone starts the server without some of them, as an init may.
TEST_F(StartupTest, ReservesTheStandardDescriptors) {
  const auto server = std::exchange(options.server, {});
  for (const std::string closed : {"012", "0", "1", "2", "02"}) {
    SCOPED_TRACE(closed);
    DiscardPhone();
    simulator::PutServer(Phone().Root(), server, {});
    Phone().Boot();
    host = HostLine(Phone().HostPort());
    std::string line = "exec /usr/sbin/phonetestd";
    for (const char number : closed) line += fmt::format(" {}>&-", number);
    Phone().RunShell(line);
    ASSERT_TRUE(Appears(LineIs("value /proc/backlight/lcd \"0\""), 60s));
    ASSERT_TRUE(StillAnswers());

    const std::vector<pid_t> processes =
        simulator::ProcessesNamed(simulator::ProcessesIn(Phone().Root().Path()), "phonetestd");
    ASSERT_EQ(processes.size(), 1u);
    for (const char number : closed) {
      const std::string descriptor = fmt::format("/proc/{}/fd/{}", processes[0], number);
      EXPECT_EQ(std::filesystem::read_symlink(descriptor), "/dev/null") << number;
    }
  }
}

TEST_F(StartupTest, SurvivesHangUpAndBrokenPipeSignals) {
  Boot();
  for (const int signal : {SIGHUP, SIGPIPE, SIGHUP}) {
    kill(Phone().ServerProcess(), signal);
    EXPECT_TRUE(StillAnswers());
  }
  // A signal in the middle of a request's time does not end the wait for the rest.
  host.Send(Words({0x2B}));
  host.Send(Words({0}));
  std::this_thread::sleep_for(100ms);
  kill(Phone().ServerProcess(), SIGHUP);
  std::this_thread::sleep_for(100ms);
  host.Send(Words({0}));
  EXPECT_EQ(host.Receive(4), Words({0}));
  // Nor does it end the wait for a program's output.
  Phone().Command({"fault", "open", "/proc/mtd", "delay=500"});
  MarkJournal();
  SendCommand(0x11, Words({0}));
  EXPECT_TRUE(Appears(LineIs("shell cat /proc/mtd")));
  std::this_thread::sleep_for(100ms);
  kill(Phone().ServerProcess(), SIGHUP);
  EXPECT_EQ(StatusOf(host.Receive(132)), SUCCESS);
}

TEST_F(StartupTest, LeavesSignalsToItsProgramsAsTheyWere) {
  Phone().Root().PutFile("/usr/share/config/setup/setup_reset.sh",
                         "#!/bin/sh\ngrep SigIgn /proc/self/status\n");
  Boot();
  EXPECT_EQ(AskStatus(0x03, Words({0})), SUCCESS);
  const std::string text = Phone().ConsoleText();
  const size_t place = text.find("SigIgn:");
  ASSERT_NE(place, std::string::npos) << text;
  constexpr uint64_t HANG_UP_AND_BROKEN_PIPE = 1U << (SIGHUP - 1) | 1U << (SIGPIPE - 1);
  EXPECT_EQ(std::stoull(text.substr(place + 7), nullptr, 16) & HANG_UP_AND_BROKEN_PIPE, 0u) << text;
}

}  // namespace
