// The modem driver's queries and control value, the modem's GPIO lines and state, the -c run mode, and the
// pause of the command channel.
#include <fmt/format.h>

#include <thread>

#include "simulator/models/controls.h"
#include "simulator/models/modem_driver.h"
#include "simulator/models/serial_ports.h"
#include "tests/phone/call_tracer.h"
#include "tests/phone/flash_test.h"
#include "tests/phone/processes.h"

namespace {

using simulator::Gpio;
using simulator::ModemControlPort;
using State = ModemControlPort::State;

constexpr uint32_t READ_VALUES = 0x23, READ_VALUE = 0x30, PAUSE = 0x3C, READ_STATE = 0x3E, SET_LINES = 0x3F,
                   CONTROL = 0x46, READ_BYTE = 0x48;
constexpr char CONTROL_PORT[] = "/dev/csmi_tty/1";
constexpr char GPIO[] = "/dev/misc/omap730_gpio";
constexpr char HOST_PORT[] = "/dev/usb/tts/0";
const std::string ZEROS(24, '0');  // of the block after its code, as digits

std::string OpenedPort(const std::string& mode = "rw") {
  return std::string("open ") + CONTROL_PORT + " " + mode;
}
std::string PortRequest(uint32_t number, const std::string& sent, const std::string& given) {
  return fmt::format("request {} 0x{:08X} in {} out {}", CONTROL_PORT, number, sent, given);
}
Lines GpioRequests(const std::vector<std::string>& requests) {
  Lines lines = {std::string("open ") + GPIO + " rw"};
  for (const auto& request : requests) lines.push_back(std::string("request ") + GPIO + " " + request);
  return lines;
}

// What this value does: the request, then the modem's image is saved.
Lines ControlLines(int value) {
  const std::string block = fmt::format("05000000{:02}{}", value, ZEROS.substr(2));
  return {OpenedPort(),
          PortRequest(5, block, block),
          LOOKUP,
          EraseOf(6),
          "shell dd if=/dev/mem of=/dev/mtdblock_bbs/6 bs=4096 skip=81678 count=20",
          OpenOf(6, "w+create+truncate"),
          "shell sync"};
}

class ModemControlTest : public FlashTest {
 protected:
  void SetDriver(const std::function<void(State&)>& change) {
    Phone().With<ModemControlPort>([&](ModemControlPort& port) { change(port.state); });
  }
  int PassedValue() {
    return Phone().With<ModemControlPort>([](ModemControlPort& port) { return port.state.control; });
  }
  Lines DeviceLines() {
    return LinesSince(OfKind({JournalKind::Shell}) || Below("/dev/csmi_tty") || Below("/dev/misc") ||
                      Below("/dev/usb") || Below("/proc/vantu_pm") || Below("/dev/mtdblock_bbs/"));
  }
};

TEST_F(ModemControlTest, ReadsTheDriversValues) {
  Boot();
  SetDriver([](State& state) { state.values = {0x0102, 0xFFFE, 0x8000, 0, 7, 0x1234}; });
  const std::string request = PortRequest(17, "11000000" + ZEROS, "051000000201FEFF0080000007003412");
  EXPECT_EQ(Ask(READ_VALUES, IGNORED, 28), Words({0, 0x0102, 0xFFFE, 0x8000, 0, 7, 0x1234}));
  EXPECT_EQ(LinesSince(), (Lines{OpenedPort(), request}));
  MarkJournal();
  EXPECT_EQ(Ask(READ_VALUE, IGNORED, 8), Words({0, 0xFFFE}));
  EXPECT_EQ(LinesSince(), (Lines{OpenedPort(), request}));
  MarkJournal();
  SetDriver([](State& state) { state.line_status = 0xFE; });
  EXPECT_EQ(Ask(READ_BYTE, IGNORED, 8), Words({0, 0xFE}));
  EXPECT_EQ(LinesSince(),
            (Lines{OpenedPort("r"), PortRequest(67, "43000000" + ZEROS, "43100000FE" + ZEROS.substr(2))}));

  const struct {
    const char* what;
    std::function<void()> cause;
    int32_t values, value, byte;  // results of the three
  } CASES[] = {
      {"no port", [&] { Phone().TakeAway(CONTROL_PORT); }, OPEN_FAILED, GENERAL_FAILURE, OPEN_FAILED},
      {"a refusal", [&] { Phone().GetFaults().FailRequest(CONTROL_PORT, {}, EIO); }, REQUEST_FAILED,
       GENERAL_FAILURE, GENERAL_FAILURE},
      {"a result that is not 0", [&] { SetDriver([](State& state) {
                                         state.results = {{17, 3}, {67, 3}};
                                       }); },
       REQUEST_FAILED, GENERAL_FAILURE, SUCCESS},
      {"another reply code",
       [&] { SetDriver([](State& state) {
               state.reply_codes = {{17, 0x11005}, {67, 0x1044}};
             }); },
       GENERAL_FAILURE, GENERAL_FAILURE, GENERAL_FAILURE},
      {"each other's reply code",
       [&] { SetDriver([](State& state) {
               state.reply_codes = {{17, 0x1043}, {67, 0x1005}};
             }); },
       GENERAL_FAILURE, GENERAL_FAILURE, GENERAL_FAILURE},
  };
  const size_t descriptors = OpenDescriptors(Phone().ServerProcess());
  for (const auto& c : CASES) {
    SCOPED_TRACE(c.what);
    c.cause();
    EXPECT_EQ(Ask(READ_VALUES, IGNORED, 28), Answer(c.values, Bytes(24)));
    EXPECT_EQ(Ask(READ_VALUE, IGNORED, 8), Answer(c.value, Bytes(4)));
    EXPECT_EQ(Ask(READ_BYTE, IGNORED, 8), Answer(c.byte, Words({c.byte == 0 ? 0xFEu : 0u})));
    if (c.values == OPEN_FAILED) Phone().PutBack(CONTROL_PORT);
    Phone().GetFaults().Clear();
    SetDriver([](State& state) {
      state.results.clear();
      state.reply_codes.clear();
    });
  }
  EXPECT_EQ(StatusOf(Ask(READ_VALUES, IGNORED, 28)), 0);
  EXPECT_EQ(OpenDescriptors(Phone().ServerProcess()), descriptors) << "no port stays open";
}

TEST_F(ModemControlTest, TellsTheModemsStateWord) {
  Boot();
  const struct {
    int32_t word, status;
    const char* bytes;
  } CASES[] = {
      {1, 0, "01000000"},
      {0, MODEM_STATE_ZERO, "00000000"},
      {2, REQUEST_FAILED, "02000000"},
      {-1, REQUEST_FAILED, "FFFFFFFF"},
      {0x10000, REQUEST_FAILED, "00000100"},
      {0x101, REQUEST_FAILED, "01010000"},
  };
  for (const auto& c : CASES) {
    Phone().With<Gpio>([&](Gpio& gpio) { gpio.state.modem_state = c.word; });
    MarkJournal();
    EXPECT_EQ(AskStatus(READ_STATE, IGNORED), c.status) << c.word;
    EXPECT_EQ(LinesSince(), GpioRequests({std::string("0x80044F65 out ") + c.bytes}));
  }
  Phone().With<Gpio>([](Gpio& gpio) { gpio.state.modem_state = 1; });
  Phone().GetFaults().FailRequest(GPIO, 0x80044F65, EIO);
  EXPECT_EQ(AskStatus(READ_STATE, IGNORED), REQUEST_FAILED);
  Phone().GetFaults().Clear();
  Phone().TakeAway(GPIO);
  EXPECT_EQ(AskStatus(READ_STATE, IGNORED), OPEN_FAILED);
  Phone().PutBack(GPIO);
  EXPECT_EQ(AskStatus(READ_STATE, IGNORED), 0);
}

TEST_F(ModemControlTest, SwitchesTheThreeLinesInOrder) {
  Boot();
  const uint32_t flags[][3] = {{1, 0, 1}, {0, 1, 0}, {0, 0, 0}, {1, 1, 1}, {0x80000000, 0x100, 0}};
  for (const auto& [first, second, third] : flags) {
    MarkJournal();
    EXPECT_EQ(AskStatus(SET_LINES, Words({first, second, third})), 0);
    EXPECT_EQ(LinesSince(), GpioRequests({first != 0 ? "0x40044F0E" : "0x40044F0F",
                                          second != 0 ? "0x40044F35" : "0x40044F36",
                                          third != 0 ? "0x40044F38" : "0x40044F39"}));
  }
  MarkJournal();
  Phone().GetFaults().FailRequest(GPIO, {}, EIO);
  EXPECT_EQ(AskStatus(SET_LINES, Words({0, 0, 1})), 0);
  EXPECT_EQ(LinesSince(), GpioRequests({"0x40044F0F -> EIO", "0x40044F36 -> EIO", "0x40044F38 -> EIO"}));
  Phone().TakeAway(GPIO);
  EXPECT_EQ(AskStatus(SET_LINES, Words({1, 1, 1})), OPEN_FAILED);
}

TEST_F(ModemControlTest, PassesTheControlValueAndSavesTheModemsImage) {
  Boot();
  for (const uint32_t word : {0u, 1u, 2u, 0x100u, 0xFFFFFFFFu}) {
    SetFlash("GSM FFS", std::string(81920, 'x'));
    MarkJournal();
    EXPECT_EQ(AskStatus(CONTROL, Words({word})), 0);
    EXPECT_EQ(DeviceLines(), ControlLines(word != 0 ? 1 : 0)) << word;
    EXPECT_EQ(PassedValue(), word != 0 ? 1 : 0);
    EXPECT_TRUE(Flash("GSM FFS") == simulator::ModemImage());
  }
  // Neither the result of the request nor that of the saving is checked: the second follows the first in any
  // case.
  Phone().GetFaults().FailRequest(CONTROL_PORT, 5, EIO);
  SetFlash("GSM FFS", std::string(81920, 'x'));
  EXPECT_EQ(AskStatus(CONTROL, Words({0})), 0);
  EXPECT_TRUE(Flash("GSM FFS") == simulator::ModemImage());
  SetListed("GSM FFS", false);
  EXPECT_EQ(AskStatus(CONTROL, Words({0})), 0);
  SetListed("GSM FFS", true);

  SetFlash("GSM FFS", std::string(81920, 'x'));
  Phone().TakeAway(CONTROL_PORT);
  MarkJournal();
  EXPECT_EQ(AskStatus(CONTROL, Words({1})), OPEN_FAILED);
  EXPECT_EQ(DeviceLines(), Lines{OpenedPort() + " -> ENOENT"});
  EXPECT_TRUE(Flash("GSM FFS") == std::string(81920, 'x'));
}

// The run mode: it ends with 0 whatever the text, touches the modem only for "0" and "1", and never
// touches the host's cable.
TEST_F(ModemControlTest, RunsAsAModeOfItsOwn) {
  for (const std::string text : {"0", "1", "2", "10", "01", "", " 1", "1 ", "-1", "a"}) {
    SCOPED_TRACE(text);
    DiscardPhone();
    options.server_arguments = {"-c", text};
    Phone().Boot();
    const auto end = Phone().WaitForEnd(20s);
    ASSERT_TRUE(end);
    EXPECT_EQ(end->reason, simulator::PhoneEnd::Reason::ServerExited);
    EXPECT_EQ(end->status, 0);
    const bool valid = text == "0" || text == "1";
    EXPECT_EQ(DeviceLines(), valid ? ControlLines(text == "1" ? 1 : 0) : Lines());
    EXPECT_EQ(Flash("GSM FFS") == simulator::ModemImage(), valid);
    EXPECT_EQ(PassedValue(), valid ? text[0] - '0' : -1);
  }
  DiscardPhone();
  options.server_arguments = {"-c", "1"};
  Phone().TakeAway(CONTROL_PORT);
  Phone().Boot();
  const auto end = Phone().WaitForEnd(20s);
  ASSERT_TRUE(end);
  EXPECT_EQ(end->status, 0);
  EXPECT_EQ(DeviceLines(), Lines{OpenedPort() + " -> ENOENT"});
}

class ChannelPauseTest : public PhoneTest {
 protected:
  ChannelPauseTest() {
    Boot();
    EXPECT_TRUE(StillAnswers());
    MarkJournal();
  }

  // Waits until the channel is open and set up again.
  bool IsSetUp(const TerminalCalls& calls) {
    const std::string terminal = Phone().With<simulator::HostPort>(
        [](simulator::HostPort& port) { return port.PhoneSide().DevicePath(); });
    const Lines set_up = {"flush 0", "set", "flags 2048"};
    for (int i = 0; i < 1000 && calls.Of(terminal).size() < set_up.size(); ++i) {
      std::this_thread::sleep_for(10ms);
    }
    return calls.Of(terminal) == set_up;
  }
};

TEST_F(ChannelPauseTest, ClosesTheChannelForSoManySeconds) {
  const std::string opened = std::string("open ") + HOST_PORT + " rw+cloexec";
  const size_t descriptors = OpenDescriptors(Phone().ServerProcess());
  for (const uint32_t seconds : {0u, 1u}) {
    const TerminalCalls calls(Phone().ServerProcess());
    MarkJournal();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Ask(PAUSE, Words({seconds}), 4), Words({0}));
    if (seconds != 0) {
      EXPECT_EQ(OpenDescriptors(Phone().ServerProcess()), descriptors - 1);
      host.Send(Words({0, 0}));  // to a closed channel: it is dropped when that is opened
    }
    ASSERT_TRUE(IsSetUp(calls));
    EXPECT_GE(std::chrono::steady_clock::now() - start, seconds * 1s - 50ms);
    EXPECT_EQ(LinesSince(OfKind({JournalKind::Open})), Lines{opened});
    if (seconds != 0) {
      EXPECT_EQ(LinesSince(), (Lines{"sleep 1.000", opened}));
    }
    EXPECT_TRUE(host.IsQuiet(100ms)) << "nothing is sent after the pause";
    EXPECT_TRUE(StillAnswers());
    EXPECT_EQ(OpenDescriptors(Phone().ServerProcess()), descriptors);
  }
}

}  // namespace
