#include "tests/phone/sound_lines.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numbers>

Lines SoundRequests(const std::string& device, const std::string& flags,
                    const std::vector<std::pair<uint32_t, std::string>>& requests) {
  Lines lines = {fmt::format("open {} {}", device, flags)};
  for (const auto& [number, argument] : requests) {
    lines.push_back(fmt::format("request {} 0x{:08X} in {}", device, number, argument));
    // The standard requests go both ways: the driver tells what it has set.
    if (number > 0xFFFF) lines.back() += " out " + argument;
  }
  return lines;
}

Lines AudioLine(uint32_t request) {
  constexpr char GPIO[] = "/dev/misc/omap730_gpio";
  return {fmt::format("open {} rw+cloexec", GPIO), fmt::format("request {} 0x{:08X}", GPIO, request)};
}

Lines ToneLines(uint8_t volume, bool second_route) {
  return SoundRequests(MIXER, "rw+cloexec", {{0xC0044D04, fmt::format("{:02X}000000", volume)}}) +
         SoundRequests(PCM, "w+cloexec",
                       {{0x2271, "01000000"},
                        {0x2246, second_route ? "00000005" : "00030005"},
                        {0x2244, second_route ? "30000000" : "00030000"}}) +
         (second_route ? AudioLine(LINE_A_ON) : Lines()) +
         SoundRequests(PCM, "w+cloexec",
                       {{0xC0045006, "02000000"}, {0xC0045002, "44AC0000"}, {0xC0045005, "10000000"}}) +
         SoundRequests(MIXER, "w+cloexec", {{0x2280, "01000000"}}) + AudioLine(LINE_A_OFF);
}

RecordedSound ReadRecording(const std::filesystem::path& file) {
  constexpr size_t HEADER_SIZE = 44;
  std::ifstream stream(file, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  const Bytes bytes = FromText(text);
  if (bytes.size() < HEADER_SIZE) {
    ADD_FAILURE() << file << " has " << bytes.size() << " bytes";
    return {};
  }
  EXPECT_EQ(text.substr(0, 4) + text.substr(8, 8) + text.substr(36, 4), "RIFFWAVEfmt data");
  const uint32_t sound_bytes = WordAt(bytes, 40);
  EXPECT_EQ(WordAt(bytes, 4), sound_bytes + 36);
  EXPECT_EQ(WordAt(bytes, 16), 16u);
  RecordedSound sound{WordAt(bytes, 24),
                      static_cast<uint16_t>(WordAt(bytes, 20) >> 16),
                      static_cast<uint16_t>(WordAt(bytes, 32) >> 16),
                      {}};
  EXPECT_EQ(WordAt(bytes, 20) & 0xFFFF, 1u) << "coding";
  EXPECT_EQ(WordAt(bytes, 28), sound.sample_rate * sound.channels * sound.sample_bits / 8);
  EXPECT_EQ(WordAt(bytes, 32) & 0xFFFF, sound.channels * sound.sample_bits / 8u);
  // A recording that still grows may have more than its header says.
  sound.samples.resize(std::min<size_t>(sound_bytes, bytes.size() - HEADER_SIZE) / 2);
  memcpy(sound.samples.data(), bytes.data() + HEADER_SIZE, sound.samples.size() * 2);
  return sound;
}

int16_t ToneSample(uint32_t n, const std::vector<int32_t>& frequencies) {
  static const std::vector<int64_t> cosine = [] {
    std::vector<int64_t> table;
    for (int i = 0; i < 512; ++i)
      table.push_back(std::lround(32767 * std::cos(2 * std::numbers::pi * i / 512)));
    return table;
  }();
  int64_t sum = 0;
  for (int64_t frequency : frequencies) {
    if (frequency == 0) continue;
    const int64_t step = frequency * 512 / 44100;
    const int64_t place = (n % 512 * step - 128) % 512;
    sum += cosine[static_cast<size_t>(place < 0 ? place + 512 : place)];
  }
  // Halved towards minus infinity.
  return static_cast<int16_t>(std::floor(static_cast<double>(std::clamp<int64_t>(sum, -32767, 32767)) / 2));
}

void ExpectTone(const RecordedSound& sound, size_t frames, const std::vector<int32_t>& frequencies) {
  EXPECT_EQ(sound.sample_rate, 44100u);
  EXPECT_EQ(sound.channels, 2);
  EXPECT_EQ(sound.sample_bits, 16);
  ASSERT_GE(sound.samples.size(), 2 * frames);
  for (size_t n = 0; n < frames; ++n) {
    const int16_t expected = ToneSample(static_cast<uint32_t>(n), frequencies);
    ASSERT_EQ(sound.samples[2 * n], expected) << "left, frame " << n;
    ASSERT_EQ(sound.samples[2 * n + 1], expected) << "right, frame " << n;
  }
}
