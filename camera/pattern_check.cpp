#include "camera/pattern_check.h"

using PixelPair [[gnu::may_alias]] = uint32_t;

bool IsUniform(const uint16_t* frame, uint32_t count, uint16_t colour) {
  const auto* pairs = reinterpret_cast<const PixelPair*>(frame);
  const uint32_t expected = static_cast<uint32_t>(colour) << 16 | colour;
  uint32_t differences = 0;
  for (uint32_t i = 0; i < count / 2; ++i) differences |= pairs[i] ^ expected;
  return differences == 0;
}
