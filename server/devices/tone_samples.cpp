#include "server/devices/tone_samples.h"

#include <algorithm>
#include <bit>

// The cosine of an angle of at most half a turn, by its power series. Only the compiler calls it.
static constexpr double Cosine(double angle) {
  double term = 1, sum = 1;
  for (int n = 1; n < 20; ++n) {
    term *= -angle * angle / ((2 * n - 1) * (2 * n));
    sum += term;
  }
  return sum;
}

static constexpr CosTable MakeCosTable() {
  constexpr double PI = 3.14159265358979323846;
  constexpr double AMPLITUDE = 32767;
  CosTable table = {};
  for (uint32_t i = 0; i <= TONE_TABLE_SIZE / 2; ++i) {
    const double value = AMPLITUDE * Cosine(2 * PI * i / TONE_TABLE_SIZE);
    const auto rounded = static_cast<int16_t>(value < 0 ? value - 0.5 : value + 0.5);
    table.entry[i] = rounded;
    table.entry[(TONE_TABLE_SIZE - i) % TONE_TABLE_SIZE] = rounded;
  }
  return table;
}

constexpr CosTable ToneCosTable = MakeCosTable();
static_assert(ToneCosTable.entry[0] == 32767 && ToneCosTable.entry[256] == -32767 &&
              ToneCosTable.entry[384] == 0);

int32_t ToneStep(int32_t frequency) {
  // 64 bits, since the host may send any word.
  return static_cast<int32_t>(static_cast<int64_t>(frequency) * TONE_TABLE_SIZE / TONE_SAMPLE_RATE);
}

// A full turn is the range of a whole word, so that angles wrap round by themselves. Their top 9 bits are the
// table's index.
constexpr uint32_t INDEX_SHIFT = 32 - 9;
static_assert(TONE_TABLE_SIZE == 1 << (32 - INDEX_SHIFT));
constexpr uint32_t QUARTER_TURN = 1U << 30;

// The angle that a tone turns by with each frame. An absent tone, of frequency 0, stays at 0.
static uint32_t AngleStep(int32_t frequency) {
  return static_cast<uint32_t>(ToneStep(frequency)) << INDEX_SHIFT;
}

static int32_t Sine(uint32_t angle) {
  return ToneCosTable.entry[(angle - QUARTER_TURN) >> INDEX_SHIFT];
}

// Clips and halves the sum for both channels, which go to memory as one word.
static ToneFrame MakeFrame(int32_t sum) {
  const auto left = static_cast<uint32_t>(std::clamp(sum, -32767, 32767) >> 1) << 16;
  return std::bit_cast<ToneFrame>(left | left >> 16);
}

uint32_t FillToneBuffer(ToneFrame* frames, uint32_t frame_count, const SharedWord* frequencies,
                        uint32_t phase) {
  const uint32_t first_step = AngleStep(ReadWord(frequencies[0]));
  int32_t second = 0, third = 0;
  uint32_t second_step = 0, third_step = 0;
  for (ToneFrame* const end = frames + frame_count; frames < end; ++frames, ++phase) {
    const int32_t new_second = ReadWord(frequencies[1]);
    const int32_t new_third = ReadWord(frequencies[2]);
    if (new_second != second || new_third != third) [[unlikely]] {
      second = new_second;
      third = new_third;
      second_step = AngleStep(second);
      third_step = AngleStep(third);
    }
    *frames = MakeFrame(Sine(phase * first_step) + Sine(phase * second_step) + Sine(phase * third_step));
  }
  return phase % TONE_TABLE_SIZE;
}
