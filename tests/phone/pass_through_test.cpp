// The relay between the host and the modem's data port, as a command and as a run mode of its own.
#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <termios.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <future>
#include <optional>
#include <random>
#include <thread>

#include "simulator/models/controls.h"
#include "simulator/models/serial_ports.h"
#include "tests/phone/call_tracer.h"
#include "tests/phone/phone_test.h"
#include "tests/phone/processes.h"

namespace {

using simulator::Gpio;
using simulator::ModemDataPort;

constexpr uint32_t PASS_THROUGH = 0x3D;
constexpr char MODEM_PORT[] = "/dev/csmi_tty/7";
constexpr char GPIO_DEVICE[] = "/dev/misc/omap730_gpio";
constexpr char STANDBY[] = "open /proc/vantu_pm/prohibit_standby rw+cloexec";
const Bytes PING = Words({0, 0});
const Bytes LEAVE =
    Words({0xF1}) + FromText("backarm9") + Bytes{0x9D, 0x9E, 0x9C, 0x94, 0x9E, 0x8D, 0x92, 0xC6};

Bytes Part(const Bytes& bytes, size_t begin, size_t end) {
  return {bytes.begin() + static_cast<ptrdiff_t>(begin), bytes.begin() + static_cast<ptrdiff_t>(end)};
}

Bytes Noise(unsigned seed, size_t size) {
  std::mt19937 numbers(seed);
  Bytes bytes(size);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(numbers());
  return bytes;
}

class PassThroughTest : public PhoneTest {
 protected:
  PassThroughTest() {
    options.instant_sleeps = true;
  }

  // The modem's end of its data port; what the relay has sent so far is kept.
  void JoinModem() {
    modem = HostLine(
        Phone().With<ModemDataPort>([](ModemDataPort& port) { return port.ModemSide().DevicePath(); }));
  }
  void BootAsCommand() {
    Boot();
    JoinModem();
    EXPECT_TRUE(StillAnswers());  // and has closed what its start opened
    descriptors = OpenDescriptors(Phone().ServerProcess());
  }
  void Enter() {
    EXPECT_EQ(Ask(PASS_THROUGH, Words({0xDEADBEEF}), 4), Words({0}));
  }

  void ExpectRelayed(const Bytes& bytes) {
    host.Send(bytes);
    EXPECT_EQ(modem.Receive(bytes.size()), bytes);
  }
  void ExpectBothWays() {
    ExpectRelayed(PING);
    modem.Send(FromText("answer"));
    EXPECT_EQ(host.Receive(6), FromText("answer"));
    EXPECT_TRUE(modem.IsQuiet(20ms) && host.IsQuiet(20ms));
  }
  // The frame must not meet a ping in one read, so the ping waits until the modem's port is closed.
  void Leave() {
    host.Send(LEAVE);
    for (int i = 0; i < 500 && OpenDescriptors(Phone().ServerProcess()) != descriptors; ++i) {
      std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(OpenDescriptors(Phone().ServerProcess()), descriptors) << "the modem's port is closed";
    EXPECT_TRUE(StillAnswers());
    EXPECT_TRUE(modem.IsQuiet(20ms)) << "the leave frame is not forwarded";
  }
  // The server rests although one of its ports is always readable.
  void ExpectRests() {
    const long ticks = ProcessorTicks();
    std::this_thread::sleep_for(1s);
    EXPECT_LT(ProcessorTicks() - ticks, 20) << "of 100";
  }

  HostLine modem;
  size_t descriptors = 0;  // that the server holds outside the mode
};

TEST_F(PassThroughTest, CarriesAMebibyteEachWayAtOnce) {
  BootAsCommand();
  Enter();
  const Bytes up = Noise(1, 1 << 20), down = Noise(2, 1 << 20);
  auto sending_up = std::async(std::launch::async, [&] { host.Send(up); });
  auto sending_down = std::async(std::launch::async, [&] { modem.Send(down); });
  auto received = std::async(std::launch::async, [&] { return modem.Receive(up.size(), 60s); });
  EXPECT_TRUE(host.Receive(down.size(), 60s) == down);
  EXPECT_TRUE(received.get() == up);
  EXPECT_TRUE(host.IsQuiet(20ms) && modem.IsQuiet(20ms)) << "and nothing more";
  // Every byte value is data: none ends, stops or changes the stream.
  Bytes every(256);
  for (size_t value = 0; value < every.size(); ++value) every[value] = static_cast<uint8_t>(value);
  ExpectRelayed(every);
  Leave();
}

TEST_F(PassThroughTest, LeavesForTheFrameAloneInOneRead) {
  BootAsCommand();
  Enter();
  EXPECT_EQ(LinesSince(), Lines{std::string("open ") + MODEM_PORT + " rw+nonblock"});
  Bytes wrong_end = LEAVE, wrong_start = LEAVE, wrong_second = LEAVE;
  wrong_end.back() ^= 1;
  wrong_start.front() = 0xF0;
  wrong_second[1] = 1;
  for (const Bytes& forwarded : {FromText("x") + LEAVE, LEAVE + FromText("x"), LEAVE + LEAVE, wrong_end,
                                 wrong_start, wrong_second, Part(LEAVE, 0, 19)}) {
    ExpectRelayed(forwarded);
  }
  ExpectRelayed(Part(LEAVE, 0, 7));  // it has been read when it has come through
  ExpectRelayed(Part(LEAVE, 7, 20));
  ExpectBothWays();
  modem.Send(LEAVE);
  EXPECT_EQ(host.Receive(20), LEAVE) << "only the host can leave";
  ExpectBothWays();

  Leave();
  // A second time, and the modem's bytes in between stay out of the command loop.
  modem.Send(FromText("early"));
  Enter();
  ExpectBothWays();
  Leave();
  EXPECT_EQ(LinesSince(), Lines(2, std::string("open ") + MODEM_PORT + " rw+nonblock"))
      << "the gadget is not reloaded";
}

TEST_F(PassThroughTest, KeepsWhatFollowsTheCommandAndSetsTheModemsLineOnly) {
  BootAsCommand();
  const auto path_of = [](auto& port) { return port.PhoneSide().DevicePath(); };
  const std::string modem_terminal = Phone().With<ModemDataPort>(path_of);
  const std::string host_terminal = Phone().With<simulator::HostPort>(path_of);
  {
    const TerminalCalls calls(Phone().ServerProcess());
    host.Send(Words({PASS_THROUGH, 0}) + FromText("right behind"));
    EXPECT_EQ(host.Receive(4), Words({0}));
    EXPECT_EQ(modem.Receive(12), FromText("right behind"));
    EXPECT_EQ(calls.Of(modem_terminal), (Lines{"flush 0", "set", "flags " + std::to_string(O_NONBLOCK)}));
    EXPECT_EQ(calls.Of(host_terminal), Lines());
  }
  const termios line = Phone().With<ModemDataPort>([](ModemDataPort& port) {
    termios settings = {};
    tcgetattr(port.PhoneSide().DeviceDescriptor(), &settings);
    return settings;
  });
  ExpectServersSettings(line);
  Leave();

  host.Send(Words({PASS_THROUGH, 0}) + LEAVE + PING);
  EXPECT_EQ(host.Receive(4), Words({0}));
  EXPECT_EQ(modem.Receive(28), LEAVE + PING) << "one read with what follows";
  Leave();
}

TEST_F(PassThroughTest, GoesOnWithoutTheModemsPort) {
  BootAsCommand();
  Phone().TakeAway(MODEM_PORT);
  host.Send(Words({PASS_THROUGH, 0}) + PING);
  EXPECT_EQ(host.Receive(8), Words({0, 1})) << "the failure is not reported; the command loop goes on";
  EXPECT_EQ(LinesSince(), Lines{std::string("open ") + MODEM_PORT + " rw+nonblock -> ENOENT"});
  Phone().PutBack(MODEM_PORT);
  Enter();
  ExpectBothWays();
  Leave();
}

TEST_F(PassThroughTest, RestsWhileNothingComes) {
  BootAsCommand();
  Enter();
  ExpectRests();
  Leave();
  // A modem port at its end: readable for ever, without a byte. The other way goes on.
  Phone().With<ModemDataPort>([](ModemDataPort& port) { port.state.input_ended = true; });
  Enter();
  ExpectRests();
  ExpectRelayed(PING);
  Leave();
  Phone().With<ModemDataPort>([](ModemDataPort& port) { port.state.input_ended = false; });
  // One that is hung up refuses writes, too.
  Enter();
  ExpectRelayed(PING);
  Phone().With<ModemDataPort>([](ModemDataPort& port) { port.PhoneSide().HangUp(); });
  ExpectRests();
  host.Send(PING);
  std::this_thread::sleep_for(100ms);
  Leave();
}

// The modem's port reports room and refuses every write.
TEST_F(PassThroughTest, GoesOnWhileTheModemTakesNothing) {
  BootAsCommand();
  const std::string terminal =
      Phone().With<ModemDataPort>([](ModemDataPort& port) { return port.PhoneSide().DevicePath(); });
  std::atomic<bool> refuses = true;
  std::atomic<int> attempts = 0;
  const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
    if (!call.IsWrite() || call.DescriptorPath() != terminal || !refuses) return {};
    ++attempts;
    return {CallFate::Kind::Refused, 0, EAGAIN};
  });
  Enter();
  host.Send(FromText("stuck"));
  EXPECT_TRUE(Eventually([&] { return attempts > 0; }));
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 5; ++i) {
    modem.Send(FromText("answer"));
    EXPECT_EQ(host.Receive(6), FromText("answer"));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, 800ms) << "the other direction does not wait";
  std::this_thread::sleep_for(1500ms);
  EXPECT_LT(attempts, 400) << "it pauses between attempts";
  const int given_up = attempts;
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(attempts, given_up) << "a block has one second";
  refuses = false;
  ExpectBothWays();

  refuses = true;
  const auto stuck = std::chrono::steady_clock::now();
  host.Send(FromText("stuck"));
  std::this_thread::sleep_for(100ms);
  Leave();
  EXPECT_GT(std::chrono::steady_clock::now() - stuck, 1s) << "what waits keeps its second";
}

// A port that takes a byte now and then does not hold the block longer than its second.
TEST_F(PassThroughTest, GivesAWholeBlockOneSecond) {
  BootAsCommand();
  const std::string terminal =
      Phone().With<ModemDataPort>([](ModemDataPort& port) { return port.PhoneSide().DevicePath(); });
  std::atomic<int> attempts = 0;
  std::atomic<bool> dripping = true;
  std::chrono::steady_clock::time_point last_byte;
  const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
    if (!call.IsWrite() || call.DescriptorPath() != terminal || !dripping) return {};
    ++attempts;
    const auto now = std::chrono::steady_clock::now();
    if (now - last_byte < 100ms) return {CallFate::Kind::Refused, 0, EAGAIN};
    last_byte = now;
    return {CallFate::Kind::Shortened, 1, 0};
  });
  Enter();
  host.Send(Noise(3, 500));
  std::this_thread::sleep_for(1400ms);
  const int before = attempts;
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(attempts, before);
  EXPECT_GT(before, 5);
  dripping = false;
  while (!modem.IsQuiet(50ms)) modem.Receive(1);
  ExpectBothWays();
  Leave();
}

// The time that a poll has, in milliseconds; nothing for another call.
std::optional<int64_t> PollsTime(const TracedCall& call) {
  constexpr uint64_t NARROW_POLL = 168;
  if (call.number == (call.narrow ? NARROW_POLL : SYS_poll)) return static_cast<int32_t>(call.arguments[2]);
  timespec time = {};  // what the emulator makes of it
  const std::string bytes = call.number == SYS_ppoll ? call.Memory(call.arguments[2], sizeof time) : "";
  if (call.narrow || bytes.size() != sizeof time) return {};
  memcpy(&time, bytes.data(), sizeof time);
  return time.tv_sec * 1000 + time.tv_nsec / 1'000'000;
}

// While a block waits for room, every wait ends with the block's second, however often the other port wakes
// it.
TEST_F(PassThroughTest, EndsItsWaitsWithTheBlocksSecond) {
  using std::chrono::steady_clock;
  BootAsCommand();
  const std::string terminal =
      Phone().With<ModemDataPort>([](ModemDataPort& port) { return port.PhoneSide().DevicePath(); });
  std::string block;
  steady_clock::time_point since;
  int64_t soonest = INT64_MAX;  // end of a wait, from the block's first write on, in milliseconds
  std::atomic<int> waits = 0;
  const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
    const std::string path = call.IsRead() || call.IsWrite() ? call.DescriptorPath() : "";
    if (call.IsRead() && path == terminal) {
      EXPECT_EQ(call.Size(), 4095u);
    }
    if (call.IsWrite() && path == terminal && block != call.WrittenBytes()) {
      block = call.WrittenBytes();
      since = steady_clock::now();
    }
    const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - since);
    const auto time = block.empty() ? std::nullopt : PollsTime(call);
    if (time && waited > 300ms && waited < 900ms) {
      soonest = std::min(soonest, waited.count() + *time);
      ++waits;
    }
    return {};
  });
  Enter();
  auto sending = std::async(std::launch::async, [&] { host.Send(Noise(5, 300000)); });
  EXPECT_TRUE(Eventually([&] {
    modem.Send(FromText("x"));
    return waits > 10;
  }));
  EXPECT_NEAR(static_cast<double>(soonest), 1000, 200);
  do modem.Receive(1 << 16, 300ms);
  while (sending.wait_for(0ms) != std::future_status::ready);
  while (!modem.IsQuiet(100ms)) modem.Receive(1 << 16, 100ms);
  while (!host.IsQuiet(100ms)) host.Receive(1 << 16, 100ms);
  Leave();
}

TEST_F(PassThroughTest, LosesNothingToASignalWhileItWaitsForRoom) {
  BootAsCommand();
  Enter();
  const Bytes up = Noise(4, 300000);
  auto sending = std::async(std::launch::async, [&] { host.Send(up); });
  for (int i = 0; i < 6; ++i) {
    std::this_thread::sleep_for(100ms);  // the modem's queue is full
    kill(Phone().ServerProcess(), SIGHUP);
  }
  EXPECT_TRUE(modem.Receive(up.size(), 60s) == up);
  sending.get();
  Leave();
}

class StandalonePassThroughTest : public PassThroughTest {
 protected:
  StandalonePassThroughTest() {
    options.server_arguments = {"-g"};
  }

  void BootAlone() {
    Phone().Boot();
    host = HostLine(Phone().HostPort());
    ASSERT_TRUE(Appears(LineIs(STANDBY)));
    JoinModem();
  }
  void SetStopFlag(uint32_t flag) {
    Phone().With<Gpio>([&](Gpio& gpio) { gpio.state.stop_flag = flag; });
  }
  void ExpectEnded() {
    const auto end = Phone().WaitForEnd(10s);
    ASSERT_TRUE(end);
    EXPECT_EQ(end->reason, simulator::PhoneEnd::Reason::ServerExited);
    EXPECT_EQ(end->status, 0);
    EXPECT_EQ(Phone().ConsoleText(), "");
  }
  // What the server did, except reading the stop flag, and without what its shells and libraries did.
  Lines ServersLines() {
    return LinesSince(
        OfKind({JournalKind::Request, JournalKind::Shell, JournalKind::Sleep, JournalKind::Open}) &&
        [this](const simulator::JournalEntry& entry) {
          const std::string line = entry.Line();
          if (line.find("0x80044F3F") != std::string::npos) {
            EXPECT_EQ(entry.bytes_out.size(), 4u);
            ++flag_reads;
            return false;
          }
          const bool device = entry.path.starts_with("/dev/csmi") || entry.path.starts_with("/dev/usb") ||
                              entry.path.starts_with("/proc/vantu");
          return entry.kind != JournalKind::Open || device;
        });
  }

  int flag_reads = 0;
};

const Lines MODEM_OPENED = {std::string("open ") + MODEM_PORT + " rw+nonblock"};
const Lines TAKEN_OVER = {std::string("request ") + GPIO_DEVICE + " 0x40044F29",
                          "shell ifconfig usbl0 down",
                          "shell rmmod omap_bi",
                          "shell rmmod net_fd",
                          "shell rmmod serial_fd",
                          "shell rmmod usbdcore",
                          "shell insmod usbdcore.o",
                          "shell insmod serial_fd.o",
                          "shell insmod omap_bi.o"};
const Lines GIVEN_UP = {"shell rmmod omap_bi",  "shell rmmod serial_fd",
                        "shell rmmod usbdcore", "shell echo 1 > /proc/gpio/motor",
                        "sleep 1.000",          "shell echo 0 > /proc/gpio/motor"};

TEST_F(StandalonePassThroughTest, RelaysUntilTheStopFlagIsSet) {
  BootAlone();
  ExpectBothWays();
  ExpectRelayed(LEAVE);
  ExpectBothWays();
  ExpectRests();
  EXPECT_TRUE(Phone().IsRunning());
  SetStopFlag(0x80000000);
  ExpectEnded();
  EXPECT_EQ(ServersLines(),
            (MODEM_OPENED + TAKEN_OVER + Lines{"open /dev/usb/tts/0 rw", STANDBY} + GIVEN_UP));
  EXPECT_GE(flag_reads, 4) << "once a round";
}

TEST_F(StandalonePassThroughTest, WaitsASecondAtMostForItsFlag) {
  BootAlone();
  std::this_thread::sleep_for(3500ms);
  ServersLines();
  EXPECT_GE(flag_reads, 4);
  EXPECT_LE(flag_reads, 6);
  SetStopFlag(1);
  ExpectEnded();
}

TEST_F(StandalonePassThroughTest, DoesWithoutGpioAndSurvivesACableThatGoes) {
  Phone().TakeAway(GPIO_DEVICE);
  BootAlone();
  ExpectBothWays();
  Phone().With<simulator::HostPort>([](simulator::HostPort& port) { port.Replug(); });
  ExpectRests();
  modem.Send(PING);
  EXPECT_TRUE(Phone().IsRunning());
  SetStopFlag(1);
  Phone().PutBack(GPIO_DEVICE);
  ExpectEnded();
}

TEST_F(StandalonePassThroughTest, EndsWithZeroWithoutItsPorts) {
  Phone().TakeAway(MODEM_PORT);
  Phone().Boot();
  ExpectEnded();
  EXPECT_EQ(ServersLines(), Lines{MODEM_OPENED[0] + " -> ENOENT"});

  DiscardPhone();
  Phone().TakeAway("/dev/usb/tts/0");
  Phone().Boot();
  ExpectEnded();
  EXPECT_EQ(ServersLines(), MODEM_OPENED + TAKEN_OVER + Lines{"open /dev/usb/tts/0 rw -> ENOENT"});
}

}  // namespace
