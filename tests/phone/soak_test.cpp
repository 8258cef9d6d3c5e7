// Many commands of all kinds in a random order. The server and the simulator must not need more memory,
// descriptors, threads or processes at the end than at the start. The leaks that docs/on-purpose.md lists are
// counted exactly. The first commands do not count, because buffers and the journal still grow then.
//
// $SOAK is the number of commands, and $SEED repeats a run.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iostream>
#include <random>

#include "simulator/models/capture_device.h"
#include "simulator/models/front_panel.h"
#include "simulator/models/sound.h"
#include "simulator/supervisor/phone_processes.h"
#include "tests/phone/every_command.h"
#include "tests/phone/phone_test.h"

namespace {

using namespace protocol;
using namespace simulator;
using Clock = std::chrono::steady_clock;

constexpr uint32_t WIDTH = 64, HEIGHT = 48;  // of pictures

// What memory may differ by, in bytes: whole pages, and pieces that the allocator keeps.
constexpr double SERVER_NOISE = 64 << 10;
constexpr int64_t ALLOCATOR_HEADER = 16;  // of each piece that is leaked
constexpr int64_t SIMULATOR_NOISE = 2 << 20;

// Of a process: memory that is its own, in bytes, and open descriptors.
struct Size {
  int64_t memory = 0;
  size_t descriptors = 0;
};

Size SizeOf(pid_t process) {
  Size size = {0, HoldingsOf(process).files.size()};
  std::ifstream status(fmt::format("/proc/{}/status", process));
  for (std::string word; status >> word;) {
    if (word == "RssAnon:") status >> size.memory;
  }
  size.memory *= 1024;
  return size;
}

// How long the commands of one part of the run took, in milliseconds.
class RoundTrips {
 public:
  explicit RoundTrips(size_t most) {
    times_.reserve(most);
  }
  void Add(double time) {
    if (times_.size() < times_.capacity()) times_.push_back(time);
  }
  std::string Text() {
    std::ranges::sort(times_);
    const auto at = [this](double part) {
      return times_.at(static_cast<size_t>(part * static_cast<double>(times_.size() - 1)));
    };
    return fmt::format("p50 {:.2f} ms, p99 {:.2f} ms, max {:.1f} ms", at(0.5), at(0.99), at(1));
  }

 private:
  std::vector<double> times_;
};

class SoakTest : public PhoneTest {
 protected:
  SoakTest() {
    options.instant_sleeps = true;
    Phone().GetJournal().Keep(1000);
    Phone().With<Sound>([](Sound& sound) { sound.state.paced = false; });
    Boot();
    for (const CommandDescription& command : CommandsThatReturn()) {
      commands_.push_back(command);
      weights_.push_back(Weight(command.code));
    }
  }

  // Commands of a millisecond come more often than those that start many programs.
  static double Weight(uint32_t code) {
    switch (code) {
      case FACTORY_RESET:
      case PAUSE_LINK:
        return 0.1;
      case SET_PARTITION_WORD:
      case SAVE_MODEM_IMAGE:
      case CONTROL_MODEM:
        return 0.5;
      case PING:
      case NO_OPERATION:
      case READ_MODEM_IMAGE:
      case READ_PICTURE:
      case READ_CLOCK:
      case SHOW_DISPLAY:
      case EXCHANGE_AT:
      case CHECK_SIM:
      case CONTROL_RADIO:
      case POLL_KEYPAD:
        return 5;
      default:
        return 1;
    }
  }

  uint32_t Random(uint32_t limit) {
    return static_cast<uint32_t>(random_() % limit);
  }

  // One command with a request that succeeds, or one of zeros.
  void Try(const CommandDescription& command, const Bytes& request) {
    SCOPED_TRACE(command.name);
    const auto start = Clock::now();
    SendCommand(command.code, request);
    const Bytes answer = host.Receive(AnswerSize(command), 60s);
    const std::chrono::duration<double, std::milli> time = Clock::now() - start;
    times_->Add(time.count());
    ++sent_;
    EXPECT_TRUE(IsStatedAnswer(command, answer)) << testing::PrintToString(answer);
    if (answer.size() >= 4) status_ = StatusOf(answer);
  }

  void TryNext(const CommandDescription& command) {
    const Bytes zeros(RequestSize(command));
    Bytes request = Random(4) == 0 ? zeros : RequestFor(command);
    switch (command.code) {
      case POLL_KEYPAD:  // otherwise it waits for half a second
        Phone().With<Keypad>([this](Keypad& keypad) { keypad.PutEvent(0x740001 + (Random(4) << 16)); });
        break;
      case TEST_CAMERA:
        request = Words({uint32_t{CAPTURE_BLEMISH} + 10 * Random(2), WIDTH, HEIGHT, 90 * Random(4)});
        if (WordAt(request, 12) != 0) leaked_memory_ += WIDTH * HEIGHT * 2 + ALLOCATOR_HEADER;
        break;
      case CONTROL_TONE:
        Try(command, RequestFor(command));
        return Try(command, zeros);
      case CONTROL_TOUCH_TEST:
        Try(command, RequestFor(command));
        return StopTouchTest(command);
      case PAUSE_LINK:
        Try(command, zeros);
        EXPECT_TRUE(Eventually([this] {
          SendCommand(PING, Words({0}));
          return host.Receive(4, 50ms) == Words({1}) && host.IsQuiet(60ms);
        }));
        return;
      default:
        break;
    }
    Try(command, request);
    if (AnswerSize(command) == 0) Try(commands_.front(), Words({0}));  // a ping, so that it is over
  }

  // The thread looks at its stop only when its wait for a touch is over.
  void StopTouchTest(const CommandDescription& command) {
    SendCommand(command.code, Words({TOUCH_STOP, 0}));
    Bytes answer;
    while (answer.size() < AnswerSize(command)) {
      answer = answer + host.Receive(AnswerSize(command) - answer.size(), 1ms);
      Phone().With<TouchPanel>([](TouchPanel& panel) { panel.Deliver({100, 100, 1}); });
    }
    EXPECT_EQ(StatusOf(answer), SUCCESS);
  }

  // Brings buffers to their size: each command comes, and the tone plays until it is heard.
  void WarmUp(size_t until) {
    RoundTrips ignored(0);
    times_ = &ignored;
    for (const CommandDescription& command : commands_) TryNext(command);
    AskStatus(CONTROL_TONE, Words({2100, 1600, 0, 0, 40, 2, 1}));
    EXPECT_TRUE(Eventually(
        [this] { return Phone().With<Sound>([](Sound& sound) { return !sound.Recordings().empty(); }); }));
    AskStatus(CONTROL_TONE, Bytes(28));
    GoOn(until, ignored);
    LeakOnPurpose();
    Settle();
  }

  void GoOn(size_t until, RoundTrips& times) {
    times_ = &times;
    std::discrete_distribution<size_t> choice(weights_.begin(), weights_.end());
    while (sent_ < until && !HasFailure()) TryNext(commands_[choice(random_)]);
  }

  // Each leak of docs/on-purpose.md, once.
  void LeakOnPurpose() {
    const std::string file = "/usr/share/app_data/bluetooth/ti6150_template";
    const std::string script = Phone().Root().ReadFile(file);
    Phone().Root().PutFile(file, std::string(20000, 't'));
    EXPECT_EQ(AskStatus(WRITE_BLUETOOTH_ADDRESS, Bytes(18)), OUT_OF_RANGE);
    Phone().Root().PutFile(file, script);

    const auto refuse_mapping = [this](bool refuses) {
      Phone().With<Framebuffer>([&](Framebuffer& lcd) { lcd.state.refuses_mapping = refuses; });
    };
    refuse_mapping(true);
    EXPECT_LT(AskStatus(SHOW_DISPLAY, Words({RED, BLACK, 50, 0})), 0);
    refuse_mapping(false);

    MarkJournal();
    Phone().TakeAway("/dev/sound/mixer");
    EXPECT_EQ(AskStatus(CONTROL_TONE, Words({2100, 0, 0, 0, 0, 2, 1})), SUCCESS);
    EXPECT_TRUE(Appears(LineIs("open /dev/sound/mixer w+cloexec -> ENOENT")));
    EXPECT_EQ(AskStatus(CONTROL_TONE, Bytes(28)), SUCCESS);
    Phone().PutBack("/dev/sound/mixer");
    leaked_descriptors_ += 3;

    const auto shorten = [this](int frame) {
      Phone().With<CaptureDevice>([&](CaptureDevice& camera) { camera.state.short_frame = frame; });
    };
    shorten(2);
    EXPECT_EQ(AskStatus(TEST_CAMERA, Words({CAMERA_SELF_TEST, 0, 0, 0})), SHORT_READ);
    shorten(0);
    leaked_memory_ += 154624 + ALLOCATOR_HEADER;
  }

  // Brings an end to what a command may have left in the middle on purpose.
  void Settle() {
    while (status_ = StatusOf(Ask(READ_MODEM_IMAGE, Words({0}), 4 + GSM_FFS_CHUNK_SIZE)),
           status_ == static_cast<int32_t>(GSM_FFS_CHUNK_SIZE))
      continue;
    Ask(READ_PICTURE, Words({STOP_READING_BLEMISH}), 4 + PICTURE_CHUNK_SIZE);
    AskStatus(PLAY_MEDIA, Words({CLIP_STOP, 0, 0}));
    Ask(CONTROL_RADIO, Words({RADIO_OFF, 0, 0, 0, 0}), 12);
    EXPECT_TRUE(ComesToThreads(Phone().ServerProcess(), 1));
    EXPECT_TRUE(Eventually([this] { return HoldingsOf(Phone().ServerProcess()).children == 0; }));
    EXPECT_TRUE(Eventually([this] { return ProcessesIn(Phone().Root().Path()).size() == 1; }));
  }

  std::vector<CommandDescription> commands_;
  std::vector<double> weights_;
  std::mt19937_64 random_;
  RoundTrips* times_ = nullptr;
  size_t sent_ = 0;
  int32_t status_ = 0;
  size_t leaked_descriptors_ = 0;
  int64_t leaked_memory_ = 0;
};

TEST_F(SoakTest, LeavesServerAndSimulatorAsTheyWere) {
  const size_t count = EnvironmentNumber("SOAK", 2000);
  const uint64_t seed = EnvironmentNumber("SEED", std::random_device()());
  RecordProperty("seed", std::to_string(seed));
  SCOPED_TRACE(fmt::format("SEED={} SOAK={}", seed, count));
  random_.seed(seed);
  const size_t part = std::clamp<size_t>(count / 4, 200, 5000);
  RoundTrips first(part), middle(0), last(part);
  WarmUp(part);
  leaked_descriptors_ = 0;
  leaked_memory_ = 0;
  const pid_t server = Phone().ServerProcess();
  const Size server_before = SizeOf(server), simulator_before = SizeOf(getpid());
  GoOn(2 * part, first);
  for (int leak = 0; leak < 5; ++leak) {
    GoOn(2 * part + (count - 2 * part) * leak / 5, middle);
    LeakOnPurpose();
  }
  GoOn(count, last);
  Settle();
  const Size server_after = SizeOf(server), simulator_after = SizeOf(getpid());

  std::cout << fmt::format("SEED={}: {} commands; round trips at the start {}, at the end {}\n", seed, sent_,
                           first.Text(), last.Text());
  std::cout << fmt::format(
      "server {} KiB, then {} KiB of which {} leaked on purpose; {} descriptors, then {}\n",
      server_before.memory >> 10, server_after.memory >> 10, leaked_memory_ >> 10, server_before.descriptors,
      server_after.descriptors);
  std::cout << fmt::format("simulator and test {} KiB, then {} KiB; {} descriptors, then {}\n",
                           simulator_before.memory >> 10, simulator_after.memory >> 10,
                           simulator_before.descriptors, simulator_after.descriptors);
  EXPECT_EQ(server_after.descriptors, server_before.descriptors + leaked_descriptors_);
  // The simulator holds the other ends of two of three that the server leaks: a control's and the PCM
  // device's.
  EXPECT_EQ(simulator_after.descriptors, simulator_before.descriptors + leaked_descriptors_ / 3 * 2);
  // A sanitizer keeps memory that was freed; most of an emulated server's is the emulator's.
  if (SANITIZED || IsEmulated()) return;
  EXPECT_NEAR(static_cast<double>(server_after.memory - server_before.memory),
              static_cast<double>(leaked_memory_), SERVER_NOISE);
  EXPECT_LT(simulator_after.memory, simulator_before.memory + SIMULATOR_NOISE);
}

}  // namespace
