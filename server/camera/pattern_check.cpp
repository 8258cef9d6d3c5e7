#include "server/camera/pattern_check.h"

// Four pixels at an address that two align; the phone's processor takes them as two words.
using FourPixels [[gnu::may_alias, gnu::aligned(alignof(uint32_t))]] = const uint64_t;

bool IsUniform(const uint16_t* frame, uint32_t count, uint16_t colour) {
  auto* pixels = reinterpret_cast<FourPixels*>(frame);
  const uint64_t expected = colour * uint64_t{0x0001000100010001};
  uint64_t differences = 0;
  for (uint32_t i = 0; i < count / 4; i += 2) {
    differences |= (pixels[i] ^ expected) | (pixels[i + 1] ^ expected);
  }
  return differences == 0;
}
