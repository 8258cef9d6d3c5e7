// A host cable that is drawn out of the phone and comes back: in the command loop and in the relay.
#include <termios.h>

#include <thread>

#include "simulator/models/controls.h"
#include "simulator/models/serial_ports.h"
#include "tests/phone/phone_test.h"
#include "tests/phone/processes.h"

namespace {

using simulator::HostPort;
using simulator::ModemDataPort;

constexpr char PORT[] = "/dev/usb/tts/0";
constexpr uint32_t PING = 0x00;
constexpr uint32_t PAUSE_CHANNEL = 0x3C;
constexpr uint32_t PASS_THROUGH = 0x3D;
const Bytes LEAVE =
    Words({0xF1}) + FromText("backarm9") + Bytes{0x9D, 0x9E, 0x9C, 0x94, 0x9E, 0x8D, 0x92, 0xC6};

class UnpluggedPort : public PhoneTest {
 protected:
  UnpluggedPort() {
    options.instant_sleeps = true;
  }

  void HangUp() {
    Phone().With<HostPort>([](HostPort& port) { port.Replug(); });
  }
  void Unplug() {
    Phone().TakeAway(PORT);
    HangUp();
    EXPECT_TRUE(Appears(AtPath(PORT)));  // the server has noticed
  }
  void Plug() {
    Phone().PutBack(PORT);
  }
  // What the host sends before the port is open again is lost, so it asks until it is answered.
  bool AnswersAgain() {
    return Eventually([&] {
      host.Send(Words({PING, 0}));
      return host.Receive(4, 300ms) == Words({1});
    });
  }
  void JoinModem() {
    modem = HostLine(
        Phone().With<ModemDataPort>([](ModemDataPort& port) { return port.ModemSide().DevicePath(); }));
  }
  bool RelaysAgain() {
    return Eventually([&] {
      host.Send({0x55});
      return modem.Receive(1, 300ms) == Bytes{0x55};
    });
  }
  size_t Openings() {
    return LinesSince(AtPath(PORT)).size();
  }
  // Once a second, and next to no processor time.
  void ExpectSlowPace() {
    const size_t openings = Openings();
    const long ticks = ProcessorTicks();
    std::this_thread::sleep_for(4s);
    EXPECT_LE(ProcessorTicks() - ticks, IsEmulated() ? 6 : 1) << "of 400";
    EXPECT_GE(Openings() - openings, 3u);
    EXPECT_LE(Openings() - openings, 5u);
  }

  HostLine modem;
};

TEST_F(UnpluggedPort, ServesTheNextStation) {
  Boot();
  EXPECT_TRUE(StillAnswers());
  MarkJournal();
  const size_t descriptors = OpenDescriptors(Phone().ServerProcess());
  Unplug();
  ExpectSlowPace();
  Plug();
  EXPECT_TRUE(AnswersAgain());
  EXPECT_EQ(OpenDescriptors(Phone().ServerProcess()), descriptors);
  EXPECT_EQ(LinesSince(AtPath(PORT)).back(), std::string("open ") + PORT + " rw+cloexec");

  // The line is set as at the start.
  const termios line = Phone().With<HostPort>([](HostPort& port) {
    termios settings = {};
    tcgetattr(port.PhoneSide().DeviceDescriptor(), &settings);
    return settings;
  });
  EXPECT_EQ(line.c_cflag, tcflag_t{0x800010B2});
  EXPECT_EQ(line.c_lflag, tcflag_t{0});
}

TEST_F(UnpluggedPort, ComesBackAtOnceAfterAShortHangUp) {
  Boot();
  for (int i = 0; i < 3; ++i) {
    std::this_thread::sleep_for(1100ms);
    const auto start = std::chrono::steady_clock::now();
    HangUp();
    EXPECT_TRUE(AnswersAgain());
    EXPECT_LT(std::chrono::steady_clock::now() - start, 900ms);
  }
  EXPECT_EQ(Openings(), 3u);
}

TEST_F(UnpluggedPort, TouchesNothingWhileThePortIsAlive) {
  Boot();
  host.Send({0, 0});  // half a code
  std::this_thread::sleep_for(1500ms);
  host.Send(Words({0x77, 1, 2, 3}));  // an unknown code
  EXPECT_TRUE(host.IsQuiet(1200ms));
  EXPECT_TRUE(StillAnswers());
  EXPECT_EQ(LinesSince(), Lines());
}

TEST_F(UnpluggedPort, IsOpenedAgainAfterAPauseThatEndedWithoutIt) {
  Boot();
  Phone().TakeAway(PORT);
  EXPECT_EQ(Ask(PAUSE_CHANNEL, Words({0}), 4), Words({0}));
  EXPECT_TRUE(Appears(AtPath(PORT)));
  ExpectSlowPace();
  Plug();
  EXPECT_TRUE(AnswersAgain());
}

TEST_F(UnpluggedPort, DoesNotEndTheRelayOfTheCommand) {
  Boot();
  JoinModem();
  EXPECT_TRUE(StillAnswers());
  const size_t descriptors = OpenDescriptors(Phone().ServerProcess());
  EXPECT_EQ(Ask(PASS_THROUGH, Words({0}), 4), Words({0}));
  EXPECT_TRUE(RelaysAgain());
  Unplug();
  ExpectSlowPace();
  modem.Send(FromText("lost"));
  std::this_thread::sleep_for(200ms);
  Plug();
  EXPECT_TRUE(RelaysAgain());
  modem.Send(FromText("answer"));
  EXPECT_EQ(host.Receive(6), FromText("answer"));

  EXPECT_TRUE(Eventually([&] { return modem.IsQuiet(300ms) || (modem.Receive(1), false); }));
  host.Send(LEAVE);
  // The frame must not meet a ping in one read.
  EXPECT_TRUE(Eventually([&] { return OpenDescriptors(Phone().ServerProcess()) == descriptors; }));
  EXPECT_TRUE(AnswersAgain());
  EXPECT_TRUE(modem.IsQuiet());
}

TEST_F(UnpluggedPort, DoesNotEndTheRelayAlone) {
  options.server_arguments = {"-g"};
  Phone().Boot();
  host = HostLine(Phone().HostPort());
  ASSERT_TRUE(Appears(AtPath("/proc/vantu_pm/prohibit_standby")));
  JoinModem();
  EXPECT_TRUE(RelaysAgain());
  MarkJournal();
  Unplug();
  const size_t openings = Openings();
  // What the modem sends meanwhile is dropped and does not hurry the attempts.
  for (const auto end = std::chrono::steady_clock::now() + 3s; std::chrono::steady_clock::now() < end;) {
    modem.Send(FromText("lost"));
    std::this_thread::sleep_for(50ms);
  }
  EXPECT_GE(Openings() - openings, 2u);
  EXPECT_LE(Openings() - openings, 4u);
  Plug();
  EXPECT_TRUE(RelaysAgain());
  EXPECT_EQ(LinesSince(AtPath(PORT)).back(), std::string("open ") + PORT + " rw");
  Phone().With<simulator::Gpio>([](simulator::Gpio& gpio) { gpio.state.stop_flag = 1; });
  const auto end = Phone().WaitForEnd(10s);
  ASSERT_TRUE(end);
  EXPECT_EQ(end->status, 0);
}

}  // namespace
