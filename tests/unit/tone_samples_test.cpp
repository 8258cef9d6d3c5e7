// The tone generator's samples against sines in floating point.
#include "server/devices/tone_samples.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <vector>

namespace {

using Frequencies = std::array<int32_t, TONE_COUNT>;

struct Tones {
  SharedWord words[TONE_COUNT];

  explicit Tones(const Frequencies& frequencies) {
    for (size_t i = 0; i < TONE_COUNT; ++i) WriteWord(words[i], frequencies[i]);
  }
};

std::vector<ToneFrame> Fill(const Frequencies& frequencies, uint32_t count, uint32_t phase = 0) {
  const Tones tones(frequencies);
  std::vector<ToneFrame> frames(count + 1, ToneFrame{0x5A5A, 0x5A5A});
  EXPECT_EQ(FillToneBuffer(frames.data(), count, tones.words, phase), (phase + count) % 512);
  EXPECT_EQ(frames[count].left, 0x5A5A) << "written after the buffer";
  frames.pop_back();
  return frames;
}

// Tones are quantised to 512ths of the sample rate, cut toward zero.
double ExactSample(const Frequencies& frequencies, uint32_t frame) {
  double sum = 0;
  for (const int32_t frequency : frequencies) {
    const int64_t step = static_cast<int64_t>(frequency) * 512 / 44100;
    sum += 32767 * std::sin(2 * M_PI * static_cast<double>(frame * step % 512) / 512);
  }
  return std::clamp(sum, -32767.0, 32767.0) / 2;
}

// A table entry may be off by 2, which the halving makes 1 for each tone; in addition, the halving rounds
// down.
bool IsNear(const ToneFrame& frame, double exact) {
  return frame.left == frame.right && std::abs(frame.left - exact) <= TONE_COUNT + 1;
}

TEST(ToneSamples, FollowTheSinesOfOneTwoAndThreeTones) {
  const Frequencies cases[] = {
      {2100, 0, 0},      {0, 1600, 0},         {0, 0, 440},        {2100, 1600, 0},        {0, 3000, 87},
      {440, 1000, 3000}, {697, 1209, 941},     {-440, 1000, 0},    {100000, -50000, 44},   {INT32_MIN, 0, 0},
      {0, INT32_MIN, 0}, {1000, 0, INT32_MAX}, {2100, 2100, 2100}, {2100, 1600, INT32_MIN}};
  for (const Frequencies& frequencies : cases) {
    const auto frames = Fill(frequencies, 2000);
    for (uint32_t i = 0; i < frames.size(); ++i) {
      ASSERT_TRUE(IsNear(frames[i], ExactSample(frequencies, i)))
          << frequencies[0] << " " << frequencies[1] << " " << frequencies[2] << " Hz, frame " << i << ": "
          << frames[i].left << " for " << ExactSample(frequencies, i);
    }
  }
}

TEST(ToneSamples, FrequenciesBelowOneStepAreSilent) {
  for (const int32_t frequency : {0, 1, 86, -1 /* 0xFFFFFFFF from the host */, -86}) {
    for (const ToneFrame& frame : Fill({frequency, frequency, frequency}, 1024)) {
      ASSERT_TRUE(frame.left == 0 && frame.right == 0) << frequency << " Hz: " << frame.left;
    }
  }
  EXPECT_EQ(ToneStep(2100), 24);
  EXPECT_EQ(ToneStep(1600), 18);
  EXPECT_EQ(ToneStep(86), 0);
  EXPECT_EQ(ToneStep(-1), 0);
}

TEST(ToneSamples, ThreeTonesInPhaseClipAndAreThenHalved) {
  const auto frames = Fill({1000, 1000, 1000}, 512);
  const auto [low, high] = std::minmax_element(frames.begin(), frames.end(),
                                               [](const auto& a, const auto& b) { return a.left < b.left; });
  EXPECT_EQ(high->left, 16383);
  EXPECT_EQ(low->left, -16384);  // an arithmetic shift of -32767
}

TEST(ToneSamples, PhaseIsCarriedAcrossBuffers) {
  const Frequencies frequencies = {2100, 1600, 440};
  const auto whole = Fill(frequencies, 1500);
  uint32_t start = 0;
  for (const uint32_t piece : {1U, 2U, 509U, 513U, 475U}) {
    const auto frames = Fill(frequencies, piece, start % 512);
    for (uint32_t i = 0; i < piece; ++i) ASSERT_EQ(frames[i].left, whole[start + i].left) << start + i;
    start += piece;
  }
}

// A page of the buffer is closed to writes until the first write to it has changed the frequencies: so they
// change at a known frame.
struct ChangingPage {
  void* page;
  size_t size;
  Tones* tones;
  Frequencies then;
} changing;

void ChangeFrequencies(int) {
  for (size_t i = 0; i < TONE_COUNT; ++i) WriteWord(changing.tones->words[i], changing.then[i]);
  mprotect(changing.page, changing.size, PROT_READ | PROT_WRITE);
}

TEST(ToneSamples, FirstFrequencyHoldsForABufferTheOthersForAFrame) {
  const Frequencies before = {1000, 0, 2000}, after = {500, 3000, 0};
  const auto page_size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  auto* frames = static_cast<ToneFrame*>(
      mmap(nullptr, 2 * page_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  const auto page_frames = static_cast<uint32_t>(page_size / sizeof(ToneFrame));
  Tones tones(before);
  changing = {frames + page_frames, page_size, &tones, after};
  ASSERT_EQ(mprotect(changing.page, page_size, PROT_NONE), 0);
  struct sigaction action = {}, previous = {};
  action.sa_handler = ChangeFrequencies;
  sigaction(SIGSEGV, &action, &previous);
  FillToneBuffer(frames, 2 * page_frames, tones.words, 0);
  sigaction(SIGSEGV, &previous, nullptr);

  for (uint32_t i = 0; i < 2 * page_frames; ++i) {
    if (i == page_frames) continue;  // its frequencies were read before its sample was written
    const double exact =
        ExactSample(i < page_frames ? before : Frequencies{before[0], after[1], after[2]}, i);
    ASSERT_TRUE(IsNear(frames[i], exact)) << i << ": " << frames[i].left << " for " << exact;
  }
  munmap(frames, 2 * page_size);
}

}  // namespace
