// The tone generator's arithmetic: up to three summed sine tones in 16-bit stereo samples.
#pragma once

#include <cstdint>

#include "server/base/shared_word.h"

constexpr int32_t TONE_COUNT = 3;
constexpr int32_t TONE_SAMPLE_RATE = 44100;     // Hz
constexpr uint32_t TONE_BUFFER_FRAMES = 44100;  // one second
constexpr uint32_t TONE_TABLE_SIZE = 512;       // one period

// 32767 * cos(2 pi i / 512).
struct CosTable {
  int16_t entry[TONE_TABLE_SIZE];
};
extern const CosTable ToneCosTable;

struct alignas(uint32_t) ToneFrame {
  int16_t left, right;
};
static_assert(sizeof(ToneFrame) == 4);

// The number of table entries that a tone advances by with each frame. Frequencies are quantised to 44100 /
// 512 Hz, so a tone below about 87 Hz stands still and is silent.
int32_t ToneStep(int32_t frequency);

// Fills a buffer and returns the phase counter after it (9 bits). Frequencies in hertz, 0 for an absent tone.
// The first is read once, the others for every frame.
uint32_t FillToneBuffer(ToneFrame* frames, uint32_t frame_count, const SharedWord* frequencies,
                        uint32_t phase);
