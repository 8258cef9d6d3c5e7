// What a running phone hands out as descriptors: its LCD's memory and the sound that it plays.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "posix/file_descriptor.h"

namespace simulator {

// The word "listen" returns a socket of messages, each of which is this and samples.
struct SoundPiece {
  uint32_t sample_rate;  // Hz
  uint16_t channels;
  uint16_t sample_bits;  // 8: unsigned; 16: signed, little-endian
};

// The word "lcd" returns the framebuffer's memory to be read: no program waits for those who look at it.
class LcdView {
 public:
  static constexpr unsigned WIDTH = 240;
  static constexpr unsigned HEIGHT = 320;

  // Asks the phone. Throws std::runtime_error with a sentence.
  explicit LcdView(const std::string& phone);
  ~LcdView();
  LcdView(const LcdView&) = delete;
  LcdView& operator=(const LcdView&) = delete;

  // Takes the picture as it is now. Returns false if it is the same as the last one; the first is always new.
  bool Look();
  // Of the last look: RGB565, row after row.
  std::span<const uint16_t> Pixels() const {
    return pixels_;
  }

 private:
  const void* memory_ = nullptr;
  std::vector<uint16_t> pixels_;
};

// The socket of the word "listen". Throws std::runtime_error with a sentence.
posix::FileDescriptor ListenTo(const std::string& phone);

// The samples of a message as 16-bit ones. Returns nothing if it is not a whole one.
std::vector<int16_t> SamplesOf(std::span<const uint8_t> message, SoundPiece& piece);
// More than any message has.
constexpr size_t MOST_SOUND_MESSAGE = (1 << 16) + sizeof(SoundPiece);

}  // namespace simulator
