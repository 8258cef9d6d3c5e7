// The sound driver in tests: journal lines as the driver's users write them, and sound as it was recorded.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/phone/phone_test.h"

constexpr char PCM[] = "/dev/sound/dsp";
constexpr char MIXER[] = "/dev/sound/mixer";

// One opening with its requests, each a number and the argument's bytes in hexadecimal.
Lines SoundRequests(const std::string& device, const std::string& flags,
                    const std::vector<std::pair<uint32_t, std::string>>& requests);
// The GPIO driver opened for one request.
Lines AudioLine(uint32_t request);
constexpr uint32_t LINE_A_ON = 0x40044F28;
constexpr uint32_t LINE_A_OFF = 0x40044F29;
constexpr uint32_t LINE_B_ON = 0x40044F32;
constexpr uint32_t LINE_B_OFF = 0x40044F33;

// All that the tone thread does from its start to its end. The frequencies are not in it.
Lines ToneLines(uint8_t volume, bool second_route);

struct RecordedSound {
  uint32_t sample_rate;
  uint16_t channels, sample_bits;
  std::vector<int16_t> samples;
};
// Fails the test if the file is not a whole WAV file.
RecordedSound ReadRecording(const std::filesystem::path& file);

// The sample that the tone generator plays in frame n, by its definition.
int16_t ToneSample(uint32_t n, const std::vector<int32_t>& frequencies);
// Fails the test at the first frame that differs on either side.
void ExpectTone(const RecordedSound& sound, size_t frames, const std::vector<int32_t>& frequencies);
