// The tone generator: what its thread asks of the drivers, every sample, and how it fails.
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <functional>
#include <thread>

#include "simulator/models/sound.h"
#include "tests/phone/call_tracer.h"
#include "tests/phone/processes.h"
#include "tests/phone/sound_lines.h"

namespace {

using simulator::FaultCall;
using simulator::Sound;

constexpr uint32_t TONE = 0x29;
constexpr uint32_t SECOND_ROUTE = 2;
constexpr size_t BUFFER_FRAMES = 44100;

class Tone : public PhoneTest {
 protected:
  Tone() {
    options.instant_sleeps = true;
    Phone().With<Sound>([](Sound& sound) { sound.state.paced = false; });
    Boot();
    EXPECT_TRUE(StillAnswers());  // and has closed what its start opened
    MarkJournal();
    threads_ = Threads(Phone().ServerProcess());
    descriptors_ = OpenDescriptors(Phone().ServerProcess());
  }

  int32_t Start(const std::vector<int32_t>& frequencies, uint32_t flags) {
    constexpr uint32_t NOT_USED = 0xDEADBEEF;
    before_ = Newest().file;
    return AskStatus(TONE,
                     Words({static_cast<uint32_t>(frequencies[0]), static_cast<uint32_t>(frequencies[1]),
                            static_cast<uint32_t>(frequencies[2]), NOT_USED, 40, flags, 1}));
  }
  int32_t Stop() {
    return AskStatus(TONE, Words({1, 2, 3, 4, 5, 6, 0}));
  }

  Sound::Recording Newest() {
    return Phone().With<Sound>([](Sound& sound) {
      return sound.Recordings().empty() ? Sound::Recording{} : sound.Recordings().back();
    });
  }
  // Waits until the tone that was started last has played so many frames.
  bool Plays(size_t frames) {
    return Eventually([&] {
      const Sound::Recording newest = Newest();
      return newest.file != before_ && newest.bytes >= 4 * frames;
    });
  }
  size_t OpenStreams() {
    return Phone().With<Sound>([](Sound& sound) { return sound.OpenStreams(); });
  }

  size_t threads_, descriptors_;
  std::filesystem::path before_;
};

TEST_F(Tone, PlaysOverTheRouteOfItsFlags) {
  for (uint32_t flags : {0u, 1u, 2u, 3u, 0xFFFFFFFEu, 0xFFFFFFFCu}) {
    MarkJournal();
    EXPECT_EQ(Start({1000, 0, 0}, flags), SUCCESS);
    EXPECT_EQ(Stop(), SUCCESS);
    EXPECT_EQ(LinesSince(), ToneLines(40, (flags & 3) == SECOND_ROUTE)) << "flags " << flags;
  }
}

TEST_F(Tone, StartsOnceAndStopsOnce) {
  EXPECT_EQ(Stop(), GENERAL_FAILURE);
  EXPECT_EQ(LinesSince(), Lines());
  EXPECT_EQ(Start({1000, 0, 0}, SECOND_ROUTE), SUCCESS);
  EXPECT_EQ(Start({2000, 0, 0}, 0), GENERAL_FAILURE);
  EXPECT_EQ(Stop(), SUCCESS);
  EXPECT_EQ(LinesSince(), ToneLines(40, true)) << "the second start touches nothing";
  EXPECT_EQ(Stop(), GENERAL_FAILURE);
  EXPECT_TRUE(ComesToThreads(Phone().ServerProcess(), threads_));
  EXPECT_EQ(OpenDescriptors(Phone().ServerProcess()), descriptors_);
}

TEST_F(Tone, PlaysEverySampleByTheFormula) {
  const std::vector<int32_t> cases[] = {
      {1000, 0, 0},
      {0, 2100, 0},
      {2100, 1600, 0},
      {697, 1209, 3000},
      {440, 440, 440},         // clips at both ends
      {22050, 43999, 44100},   // steps 256, 510 and 512, which stands still
      {-1000, INT32_MIN, -1},  // no host asks for these, but they are defined
      {INT32_MAX, 100000, 86},
  };
  for (const auto& frequencies : cases) {
    EXPECT_EQ(Start(frequencies, 0), SUCCESS);
    EXPECT_TRUE(Plays(2 * BUFFER_FRAMES + 1000));
    EXPECT_EQ(Stop(), SUCCESS);
    const RecordedSound sound = ReadRecording(Newest().file);
    EXPECT_EQ(sound.samples.size() % (2 * BUFFER_FRAMES), 0u) << "whole seconds";
    // The second buffer goes on where the first ended: 44100 frames are not a whole number of table periods.
    ExpectTone(sound, 3 * BUFFER_FRAMES, frequencies);
    if (HasFatalFailure()) FAIL() << "frequency " << frequencies[0];
  }
}

TEST_F(Tone, IsSilentBelowOneStepAndHalvesWhatItHasClipped) {
  const auto played = [this](const std::vector<int32_t>& frequencies) {
    EXPECT_EQ(Start(frequencies, 0), SUCCESS);
    EXPECT_TRUE(Plays(BUFFER_FRAMES));
    EXPECT_EQ(Stop(), SUCCESS);
    std::vector<int16_t> samples = ReadRecording(Newest().file).samples;
    const auto [lowest, highest] = std::ranges::minmax_element(samples);
    return std::pair<int, int>(*lowest, *highest);
  };
  EXPECT_EQ(played({86, 0, 0}), std::pair(0, 0));
  EXPECT_EQ(played({0, 0, 0}), std::pair(0, 0));
  EXPECT_EQ(played({1000, 0, 0}), std::pair(-16384, 16383));
  EXPECT_EQ(played({1000, 1000, 1000}), std::pair(-16384, 16383));
}

TEST_F(Tone, PlaysAtTheFormatsPace) {
  Phone().With<Sound>([](Sound& sound) { sound.state.paced = true; });
  EXPECT_EQ(Start({1000, 0, 0}, 0), SUCCESS);
  EXPECT_TRUE(Plays(1));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Stop(), SUCCESS);
  // When the last write returns, the pipe may still hold 64 KiB of the second's 172 KiB.
  EXPECT_GE(std::chrono::steady_clock::now() - start, 400ms);
  const RecordedSound sound = ReadRecording(Newest().file);
  EXPECT_LE(sound.samples.size(), 2 * BUFFER_FRAMES);
}

TEST_F(Tone, StopsWhenThePcmDeviceHasTakenItsBuffer) {
  EXPECT_EQ(Start({1000, 0, 0}, 0), SUCCESS);
  EXPECT_TRUE(Plays(1));
  Phone().With<Sound>([](Sound& sound) { sound.SetStalled(true); });
  SendCommand(TONE, Words({0, 0, 0, 0, 0, 0, 0}));
  EXPECT_TRUE(host.IsQuiet(300ms));
  Phone().With<Sound>([](Sound& sound) { sound.SetStalled(false); });
  EXPECT_EQ(host.Receive(4), Words({0}));
  EXPECT_TRUE(StillAnswers());
}

TEST_F(Tone, PlaysNothingWhenStoppedBeforeItsFirstBuffer) {
  Phone().GetFaults().Add({.call = FaultCall::Request, .path = MIXER, .request = 0x2280, .delay = 300ms});
  EXPECT_EQ(Start({1000, 0, 0}, SECOND_ROUTE), SUCCESS);
  EXPECT_EQ(Stop(), SUCCESS);
  EXPECT_EQ(LinesSince(), ToneLines(40, true));
  EXPECT_EQ(Newest().bytes, 0u);
}

// What ends the thread, at which of its lines, and what stays open. The lines are counted from 1.
TEST_F(Tone, EndsSilentlyAtItsFirstFailingStep) {
  const Lines all = ToneLines(40, false);
  struct Case {
    const char* what;
    FaultCall call;
    const char* path;
    uint32_t request;
    int nth;
    size_t last_line;
    size_t open_streams;
  };
  const Case cases[] = {
      {"PCM not opened", FaultCall::Open, PCM, 0, 2, 7, 0},
      {"channels refused", FaultCall::Request, PCM, 0xC0045006, 1, 8, 0},
      {"speed refused", FaultCall::Request, PCM, 0xC0045002, 1, 9, 0},
      {"format refused", FaultCall::Request, PCM, 0xC0045005, 1, 10, 0},
      {"mixer not opened, and PCM left open on purpose", FaultCall::Open, MIXER, 0, 2, 11, 1},
  };
  for (const Case& c : cases) {
    MarkJournal();
    simulator::FaultRule rule = {.call = c.call, .path = c.path, .nth = c.nth, .error = EBUSY};
    if (c.request != 0) rule.request = c.request;
    Phone().GetFaults().Add(rule);
    EXPECT_EQ(Start({1000, 0, 0}, 0), SUCCESS) << c.what;
    EXPECT_TRUE(ComesToThreads(Phone().ServerProcess(), threads_)) << c.what;
    Lines expected(all.begin(), all.begin() + static_cast<int64_t>(c.last_line));
    expected.back() = expected.back().substr(0, expected.back().find(" in ")) + " -> EBUSY";
    EXPECT_EQ(LinesSince(), expected) << c.what;
    EXPECT_EQ(OpenStreams(), c.open_streams) << c.what;
    EXPECT_EQ(OpenDescriptors(Phone().ServerProcess()), descriptors_ + c.open_streams) << c.what;

    EXPECT_EQ(Start({1000, 0, 0}, 0), GENERAL_FAILURE) << "the flag stays set";
    EXPECT_EQ(Stop(), SUCCESS) << c.what;
    EXPECT_EQ(Stop(), GENERAL_FAILURE) << c.what;
    EXPECT_EQ(LinesSince(), expected) << "a stop of what has ended does nothing more";
    Phone().GetFaults().Clear();
  }
  MarkJournal();
  EXPECT_EQ(Start({1000, 0, 0}, 0), SUCCESS);
  EXPECT_TRUE(Plays(BUFFER_FRAMES));
  EXPECT_EQ(Stop(), SUCCESS);
  EXPECT_EQ(LinesSince(), all);
}

// The thread's lines when calls on a device fail from one of them on, `times` in a row. After a failed open
// its requests do not happen.
Lines Failing(const Lines& lines, const std::string& start, int times) {
  Lines failing;
  bool opened = true;
  for (const std::string& line : lines) {
    if (line.starts_with("open ")) opened = true;
    if (!opened) continue;
    const bool fails = line.starts_with(start) && times-- > 0;
    failing.push_back(fails ? line.substr(0, line.find(" in ")) + " -> EBUSY" : line);
    if (fails && line.starts_with("open ")) opened = false;
  }
  return failing;
}

TEST_F(Tone, GoesOnWhereAFailureIsNotLookedAt) {
  struct Case {
    FaultCall call;
    const char *path, *start;
    int times;
  };
  const Case cases[] = {
      {FaultCall::Open, MIXER, "open /dev/sound/mixer", 1},
      {FaultCall::Open, PCM, "open /dev/sound/dsp", 1},
      {FaultCall::Open, "/dev/misc/omap730_gpio", "open /dev/misc", 2},
      {FaultCall::Request, MIXER, "request /dev/sound/mixer", 2},
      {FaultCall::Request, PCM, "request /dev/sound/dsp", 3},
      {FaultCall::Request, "/dev/misc/omap730_gpio", "request /dev/misc", 2},
  };
  for (const Case& c : cases) {
    MarkJournal();
    Phone().GetFaults().Add({.call = c.call, .path = c.path, .times = c.times, .error = EBUSY});
    EXPECT_EQ(Start({1000, 0, 0}, SECOND_ROUTE), SUCCESS);
    EXPECT_TRUE(Plays(1)) << c.start;
    EXPECT_EQ(Stop(), SUCCESS);
    EXPECT_EQ(LinesSince(), Failing(ToneLines(40, true), c.start, c.times));
    EXPECT_EQ(OpenStreams(), 0u);
    Phone().GetFaults().Clear();
  }
}

TEST_F(Tone, PausesAfterAWriteThatFailsAndGoesOn) {
  std::atomic<bool> fails = true;
  std::atomic<int> attempts = 0;
  const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
    if (!call.IsWrite() || call.Size() != 4 * BUFFER_FRAMES || !fails) return {};
    ++attempts;
    return {CallFate::Kind::Refused, 0, EIO};
  });
  EXPECT_EQ(Start({1000, 0, 0}, 0), SUCCESS);
  std::this_thread::sleep_for(2500ms);
  EXPECT_GE(attempts, 2);
  EXPECT_LE(attempts, 4);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Stop(), SUCCESS);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms) << "the pause ends with the stop";

  EXPECT_EQ(Start({1000, 0, 0}, 0), SUCCESS);
  fails = false;
  EXPECT_TRUE(Plays(BUFFER_FRAMES)) << "with the next buffer";
  EXPECT_EQ(Stop(), SUCCESS);
}

TEST_F(Tone, ContinuesAShortWrite) {
  const CallTracer tracer(Phone().ServerProcess(), [&](const TracedCall& call) -> CallFate {
    if (!call.IsWrite() || call.Size() < 4 * 1000) return {};
    return {CallFate::Kind::Shortened, call.Size() / 3, 0};
  });
  EXPECT_EQ(Start({1000, 0, 0}, 0), SUCCESS);
  EXPECT_TRUE(Plays(2 * BUFFER_FRAMES));
  EXPECT_EQ(Stop(), SUCCESS);
  ExpectTone(ReadRecording(Newest().file), 2 * BUFFER_FRAMES, {1000, 0, 0});
}

// A libc's default stack may be much smaller than the buffer of a second of sound.
TEST_F(Tone, PlaysOnASmallStack) {
  DiscardPhone();
  Phone().With<Sound>([](Sound& sound) { sound.state.paced = false; });
  rlimit usual{};
  getrlimit(RLIMIT_STACK, &usual);
  const rlimit small = {128 * 1024, usual.rlim_max};
  setrlimit(RLIMIT_STACK, &small);
  Boot();
  setrlimit(RLIMIT_STACK, &usual);
  EXPECT_EQ(Start({1000, 0, 0}, 0), SUCCESS);
  EXPECT_TRUE(Plays(BUFFER_FRAMES));
  EXPECT_EQ(Stop(), SUCCESS);
}

TEST_F(Tone, KeepsItsFlagWhenNoThreadCanBeCreated) {
  // A first thread, which must not be joined once more; and the thread sanitizer makes its own with it.
  EXPECT_EQ(Start({1000, 0, 0}, 0), SUCCESS);
  EXPECT_EQ(Stop(), SUCCESS);
  MarkJournal();
  Phone().GetFaults().Add({.call = FaultCall::Thread, .error = EAGAIN});
  EXPECT_EQ(Start({1000, 0, 0}, 0), GENERAL_FAILURE);
  EXPECT_EQ(Start({1000, 0, 0}, 0), GENERAL_FAILURE) << "on purpose, though threads can be created again";
  EXPECT_TRUE(ComesToThreads(Phone().ServerProcess(), threads_));
  EXPECT_EQ(LinesSince(), Lines());
  EXPECT_EQ(Stop(), SUCCESS) << "joins nothing";
  EXPECT_EQ(Stop(), GENERAL_FAILURE);
  EXPECT_EQ(Start({1000, 0, 0}, 0), SUCCESS);
  EXPECT_EQ(Stop(), SUCCESS);
  EXPECT_EQ(LinesSince(), ToneLines(40, false));
}

}  // namespace
