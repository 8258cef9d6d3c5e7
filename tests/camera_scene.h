// A camera-like test picture in RGB565, the same on every machine: coloured patches and texture of six sizes,
// light that falls off towards the corners, hard-edged bars, sensor noise.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

inline uint32_t Scramble(uint32_t x) {
  x = (x ^ x >> 16) * 0x7FEB352DU;
  x = (x ^ x >> 15) * 0x846CA68BU;
  return x ^ x >> 16;
}

// Random values from 0 to 255 at the corners of squares of `cell` pixels, and smooth between them.
inline int ValueNoise(int x, int y, int cell, uint32_t seed) {
  const auto corner = [&](int column, int row) {
    return static_cast<int>(Scramble(Scramble(static_cast<uint32_t>(column) + seed * 7919U) ^
                                     static_cast<uint32_t>(row) * 2654435761U) >>
                            24);
  };
  const auto smooth = [&](int offset) {
    const int t = offset * 256 / cell;
    return t * t * (768 - 2 * t) >> 16;
  };
  const auto mix = [](int a, int b, int t) { return a + ((b - a) * t >> 8); };
  const int across = smooth(x % cell);
  const int column = x / cell;
  const int row = y / cell;
  return mix(mix(corner(column, row), corner(column + 1, row), across),
             mix(corner(column, row + 1), corner(column + 1, row + 1), across), smooth(y % cell));
}

// 0 in the middle, 32 at the ends.
inline int SquareFromMiddle(int64_t position, int64_t extent) {
  const int64_t distance = 2 * position - extent;
  return static_cast<int>(distance * distance * 32 / (extent * extent));
}

inline std::vector<uint16_t> CameraScene(int width, int height, uint32_t seed = 1) {
  std::vector<uint16_t> frame(static_cast<size_t>(width) * static_cast<size_t>(height));
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const bool inBars = (x / 97 + y / 131) % 7 == 3;
      const int fromMiddle = SquareFromMiddle(x, width) + SquareFromMiddle(y, height);
      const uint32_t pixel =
          static_cast<uint32_t>(y) * static_cast<uint32_t>(width) + static_cast<uint32_t>(x);
      const int noise = static_cast<int>(Scramble(pixel ^ seed * 977U) % 256) - 128;
      int level[3];
      for (uint32_t colour = 0; colour < 3; ++colour) {
        int value = 0;  // in 256ths of a level
        for (uint32_t octave = 0; octave < 6; ++octave) {
          const uint32_t ownColour = octave < 3 ? colour : 9;  // fine texture is grey
          value += ValueNoise(x, y, 160 >> octave, seed + ownColour * 31 + octave) << (7 - octave);
        }
        if (inBars) value = x / 3 % 2 == 0 ? 20 << 8 : 242 << 8;
        level[colour] = std::clamp(value / 128 * (128 - fromMiddle) + 5 * noise, 0, 255 << 8);
      }
      const auto field = [&](int colour, int largest) { return (level[colour] * largest + 32640) / 65280; };
      frame[pixel] = static_cast<uint16_t>(field(0, 31) << 11 | field(1, 63) << 5 | field(2, 31));
    }
  }
  return frame;
}
