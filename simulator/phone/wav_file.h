// A WAV file (RIFF, plain PCM) that grows: whole and playable after every piece.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

#include "posix/file_descriptor.h"

namespace simulator {

struct SoundFormat {
  uint32_t sample_rate = 8000;  // Hz
  uint16_t channels = 1;
  uint16_t sample_bits = 8;

  uint32_t FrameBytes() const {
    return channels * sample_bits / 8U;
  }
  uint32_t BytesPerSecond() const {
    return sample_rate * FrameBytes();
  }
};

class WavFile {
 public:
  // Makes the file anew, with the directories above it. Throws std::system_error, as Append does.
  WavFile(const std::filesystem::path& path, const SoundFormat& format);
  void Append(std::span<const uint8_t> samples);
  uint32_t SoundBytes() const {
    return sound_bytes_;
  }

 private:
  void WriteHeader();

  SoundFormat format_;
  posix::FileDescriptor file_;
  uint32_t sound_bytes_ = 0;
};

}  // namespace simulator
