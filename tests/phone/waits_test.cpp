// How long the server waits at most, wait by wait, as it asks the kernel for it: a request's time, a key, a
// touch, a round of the modem, the pauses before another try. Sleeps stand in the journal, and other tests
// look at them there.
#include <asm/unistd.h>

#include <cstring>
#include <mutex>

#include "simulator/models/modem_at_port.h"
#include "simulator/models/serial_ports.h"
#include "simulator/models/sound.h"
#include "tests/phone/call_tracer.h"
#include "tests/phone/every_command.h"
#include "tests/phone/phone_test.h"

namespace {

using namespace protocol;

constexpr int64_t FOREVER = -1;

class WaitsTest : public PhoneTest {
 protected:
  void SetUp() override {
    if (IsNarrow(options.server)) GTEST_SKIP() << "only for a 64-bit server";
    options.instant_sleeps = true;
    Boot();
    ASSERT_TRUE(StillAnswers());
    tracer_ = std::make_unique<CallTracer>(Phone().ServerProcess(), [this](const TracedCall& call) {
      const std::lock_guard lock(mutex_);
      return Note(call);
    });
    Waits();
  }

  // The waits since the last time, in microseconds, up to the wait for the next command.
  std::vector<int64_t> Waits() {
    return WaitsOnce([](const auto& waits) { return !waits.empty() && waits.back() == FOREVER; });
  }
  std::vector<int64_t> NextWaits(size_t count) {
    WaitsOnce([](const auto&) { return true; });
    return WaitsOnce([count](const auto& waits) { return waits.size() >= count; });
  }
  std::vector<int64_t> WaitsOnce(const std::function<bool(const std::vector<int64_t>&)>& are_enough) {
    EXPECT_TRUE(Eventually([&] {
      const std::lock_guard lock(mutex_);
      return are_enough(waits_);
    }));
    const std::lock_guard lock(mutex_);
    return std::exchange(waits_, {});
  }

  // Whether the server comes to a wait of this length.
  bool Comes(int64_t wait) {
    return Eventually([&] {
      const std::lock_guard lock(mutex_);
      return std::ranges::find(waits_, wait) != waits_.end();
    });
  }

  // What becomes of the server's calls from here on.
  void Decide(CallTracer::Decide decide) {
    const std::lock_guard lock(mutex_);
    decide_ = std::move(decide);
  }

 private:
  CallFate Note(const TracedCall& call) {
    if (call.number == __NR_poll && static_cast<int>(call.arguments[2]) != 0)
      waits_.push_back(static_cast<int>(call.arguments[2]) * 1000);
    if (call.number == __NR_select) waits_.push_back(TimeAt(call, 1));
    if (call.number == __NR_pselect6) waits_.push_back(TimeAt(call, 1000));
    return decide_ ? decide_(call) : CallFate{};
  }

  // `divisor` is how many of the record's fractions are a microsecond.
  static int64_t TimeAt(const TracedCall& call, int64_t divisor) {
    if (call.arguments[4] == 0) return FOREVER;
    int64_t time[2] = {};
    const std::string bytes = call.Memory(call.arguments[4], sizeof time);
    memcpy(time, bytes.data(), bytes.size());
    return time[0] * 1000000 + time[1] / divisor;
  }

  std::mutex mutex_;
  CallTracer::Decide decide_;
  std::vector<int64_t> waits_;
  std::unique_ptr<CallTracer> tracer_;
};

using Times = std::vector<int64_t>;

TEST_F(WaitsTest, EveryRequestHasItsTime) {
  for (const CommandDescription& command : CommandsThatReturn()) {
    if (command.code == PAUSE_LINK || AnswerSize(command) == 0) continue;
    SCOPED_TRACE(command.name);
    Ask(command.code, RequestFor(command), AnswerSize(command));
    if (command.code == CONTROL_TOUCH_TEST) Ask(command.code, Words({TOUCH_STOP, 0}), 12);
    if (command.code == CONTROL_TONE) AskStatus(command.code, Bytes(28));
    const bool two_seconds = command.code == BT_FUNCTION_4 || command.code == BT_FUNCTION_5;
    EXPECT_EQ(Waits().front(), two_seconds ? 2000000 : 1000000);
  }
}

TEST_F(WaitsTest, AKeyHasHalfASecondAndAnUnknownCodeIsDrainedForASecond) {
  AskStatus(POLL_KEYPAD, Words({0}));
  EXPECT_EQ(Waits(), (Times{1000000, 500000, FOREVER}));
  host.Send(Words({0x7777}));
  EXPECT_EQ(Waits(), (Times{1000000, FOREVER}));
}

TEST_F(WaitsTest, ATouchIsAwaitedInHalfSeconds) {
  Ask(CONTROL_TOUCH_TEST, Words({TOUCH_RESTART, 0}), 12);
  EXPECT_TRUE(Comes(500000));
  EXPECT_EQ(NextWaits(2), (Times{500000, 500000}));
  Ask(CONTROL_TOUCH_TEST, Words({TOUCH_STOP, 0}), 12);
}

TEST_F(WaitsTest, AModemThatIsSilentHasRoundsOfASecond) {
  Phone().With<simulator::ModemAtPort>([](simulator::ModemAtPort& modem) { modem.state.silent = true; });
  std::atomic<bool> hurries = false;  // the modem's rounds end at once
  Decide([&](const TracedCall& call) -> CallFate {
    if (call.IsWrite()) hurries = call.WrittenBytes().starts_with("at");
    const bool waits = call.number == __NR_select || call.number == __NR_pselect6;
    return waits && hurries ? CallFate{CallFate::Kind::Refused, 0, 0} : CallFate{};
  });
  const auto after_request = [](size_t rounds) {
    Times times(1 + rounds, 1000000);
    times.push_back(FOREVER);
    return times;
  };
  for (const auto& [time_out, rounds] :
       {std::pair<uint32_t, size_t>{1, 1}, {1000, 1}, {1001, 2}, {2500, 3}}) {
    Ask(EXCHANGE_AT, FromText("at+x\r") + Bytes(27) + Words({time_out}), 36);
    EXPECT_EQ(Waits(), after_request(3 + rounds)) << time_out << " ms after the wake-up's three rounds";
  }
  EXPECT_EQ(AskStatus(CHECK_SIM, Words({0})), GENERAL_FAILURE);
  EXPECT_EQ(Waits(), after_request(10));

  // A response that fills the buffer ends the wait.
  Decide({});
  Phone().With<simulator::ModemAtPort>([](simulator::ModemAtPort& modem) {
    modem.state.silent = false;
    modem.state.scripts["at+y"] = {{0ms, std::string(127, 'x')}};
  });
  Ask(EXCHANGE_AT, FromText("at+y\r") + Bytes(27) + Words({60000}), 36);
  EXPECT_EQ(Waits(), after_request(2));
}

TEST_F(WaitsTest, ATryThatFailsIsFollowedByAPause) {
  // The host port that hangs up, and one of which a wait is interrupted: the command is then served all the
  // same.
  Phone().With<simulator::HostPort>([](simulator::HostPort& port) { port.Replug(); });
  EXPECT_TRUE(Comes(10000));
  EXPECT_TRUE(Eventually([this] {
    SendCommand(PING, Words({0}));
    return host.Receive(4, 1s) == Words({1}) && host.IsQuiet(200ms);
  }));
  std::atomic<int> left = 0;
  Decide([&](const TracedCall& call) -> CallFate {
    const bool waits = call.number == __NR_select || call.number == __NR_pselect6;
    if (!waits || left-- != 2) return {};
    return {CallFate::Kind::Refused, 0, EINTR};
  });
  Waits();
  left = 2;
  EXPECT_EQ(AskStatus(SWITCH_MOTOR, Words({1, 0})), SUCCESS);
  const Times waits = Waits();
  EXPECT_EQ(waits[0], 1000000);
  EXPECT_EQ(waits[1], 10000);
  EXPECT_LE(waits[2], 990000) << "the pause counts";
  EXPECT_GT(waits[2], 500000);

  // A request that comes in part is dropped when its time is over, however often its waits are interrupted.
  std::atomic<int> timed = 0;
  Decide([&](const TracedCall& call) -> CallFate {
    const bool timed_call = call.number == __NR_select || call.number == __NR_pselect6;
    if (!timed_call || call.arguments[4] == 0 || timed++ == 0) return {};
    return {CallFate::Kind::Refused, 0, EINTR};
  });
  host.Send(Words({SWITCH_MOTOR, 1}));
  EXPECT_EQ(Waits().back(), FOREVER);
  EXPECT_GT(timed, 90);
  Decide({});
  EXPECT_TRUE(StillAnswers());
}

TEST_F(WaitsTest, TheBluetoothToolIsLookedAtAndTheRelayGoesRound) {
  Ask(BT_FUNCTION_6, Words({0}), 8);
  EXPECT_TRUE(Comes(20000));
  EXPECT_EQ(AskStatus(PASS_THROUGH, Words({0})), SUCCESS);
  EXPECT_TRUE(Comes(1000000));
  EXPECT_EQ(NextWaits(2), (Times{1000000, 1000000}));

  // A write that a signal interrupts is made again.
  HostLine modem(Phone().With<simulator::ModemDataPort>(
      [](simulator::ModemDataPort& port) { return port.ModemSide().DevicePath(); }));
  std::atomic<int> writes = 0;
  Decide([&](const TracedCall& call) -> CallFate {
    if (!call.IsWrite() || call.WrittenBytes() != "hello" || writes++ != 0) return {};
    return {CallFate::Kind::Refused, 0, EINTR};
  });
  host.Send(FromText("hello"));
  EXPECT_EQ(modem.Receive(5), FromText("hello"));
  EXPECT_EQ(writes, 2);
}

TEST_F(WaitsTest, ASoundThatIsRefusedPausesForASecondInSteps) {
  std::atomic<int> tries = 0;
  Decide([&](const TracedCall& call) -> CallFate {
    if (!call.IsWrite() || call.Size() < 100000) return {};
    ++tries;
    return {CallFate::Kind::Refused, 0, EIO};
  });
  AskStatus(CONTROL_TONE, RequestFor(*std::ranges::find(COMMANDS, CONTROL_TONE, &CommandDescription::code)));
  EXPECT_TRUE(Eventually([&] { return tries == 1; }));
  WaitsOnce([](const auto&) { return true; });
  EXPECT_TRUE(Eventually([&] { return tries == 2; }));
  const Times waits = WaitsOnce([](const auto&) { return true; });
  const auto steps = std::ranges::count(waits, 50000);
  EXPECT_GE(steps, 18) << "the first may have come before";
  EXPECT_LE(steps, 21);
  AskStatus(CONTROL_TONE, Bytes(28));
}

}  // namespace
