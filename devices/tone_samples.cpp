#include "devices/tone_samples.h"

#include <algorithm>

// The cosine of an angle of at most half a turn, by its power series; for the compiler only.
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

constexpr uint32_t TABLE_MASK = TONE_TABLE_SIZE - 1;
constexpr uint32_t QUARTER_PERIOD = TONE_TABLE_SIZE / 4;  // makes the cosine a sine that starts at phase 0

int32_t ToneStep(int32_t frequency) {
  // 64 bits, since the host may send any word.
  return static_cast<int32_t>(static_cast<int64_t>(frequency) * TONE_TABLE_SIZE / TONE_SAMPLE_RATE);
}

// One tone as the samples see it.
struct ToneState {
  int32_t frequency;
  uint32_t step;
};

// The division is done again only for a frequency that has changed.
static void SetFrequency(ToneState* tone, int32_t frequency) {
  if (frequency == tone->frequency) return;
  tone->frequency = frequency;
  tone->step = static_cast<uint32_t>(ToneStep(frequency)) & TABLE_MASK;
}

static int32_t Sample(const ToneState& tone, uint32_t phase) {
  return tone.frequency == 0 ? 0 : ToneCosTable.entry[(phase * tone.step - QUARTER_PERIOD) & TABLE_MASK];
}

uint32_t FillToneBuffer(ToneFrame* frames, uint32_t frame_count, const SharedWord* frequencies,
                        uint32_t phase) {
  ToneState first = {}, second = {}, third = {};
  SetFrequency(&first, ReadWord(frequencies[0]));
  for (uint32_t i = 0; i < frame_count; ++i) {
    SetFrequency(&second, ReadWord(frequencies[1]));
    SetFrequency(&third, ReadWord(frequencies[2]));
    const int32_t sum = Sample(first, phase) + Sample(second, phase) + Sample(third, phase);
    const auto sample = static_cast<int16_t>(std::clamp(sum, -32767, 32767) >> 1);
    frames[i] = {sample, sample};
    phase = (phase + 1) & TABLE_MASK;
  }
  return phase;
}
