#include "simulator/models/camera_optics.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace simulator {
namespace {

constexpr int COLOURS = 3;

uint8_t Rounded(double level) {
  return static_cast<uint8_t>(std::lround(std::clamp(level, 0.0, 255.0)));
}

// Half the width of the disc in each of its rows, from `-radius` to `radius`.
std::vector<int> DiscRows(int radius) {
  std::vector<int> rows;
  for (int row = -radius; row <= radius; ++row) {
    rows.push_back(static_cast<int>(std::sqrt((radius + 0.5) * (radius + 0.5) - row * row)));
  }
  return rows;
}

// Each pixel becomes the mean of the disc around it. At a border the disc's part outside does not count.
void Blur(int radius, Picture& picture) {
  const auto width = static_cast<int>(picture.width);
  const auto height = static_cast<int>(picture.height);
  const std::vector<int> disc = DiscRows(radius);
  const size_t stride = (picture.width + size_t{1}) * COLOURS;
  // sums[row][x] is the sum of the row's levels before x.
  std::vector<uint32_t> sums(stride * picture.height);
  for (int y = 0; y < height; ++y) {
    uint32_t* row = &sums[static_cast<size_t>(y) * stride];
    const uint8_t* levels = &picture.levels[static_cast<size_t>(y) * picture.width * COLOURS];
    for (int index = 0; index < width * COLOURS; ++index) row[index + COLOURS] = row[index] + levels[index];
  }
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      std::array<uint32_t, COLOURS> sum = {};
      uint32_t count = 0;
      for (int row = std::max(y - radius, 0); row <= std::min(y + radius, height - 1); ++row) {
        const int half = disc[static_cast<size_t>(row - y + radius)];
        const int from = std::max(x - half, 0);
        const int to = std::min(x + half + 1, width);
        const uint32_t* before = &sums[static_cast<size_t>(row) * stride];
        for (int colour = 0; colour < COLOURS; ++colour) {
          sum[static_cast<size_t>(colour)] += before[to * COLOURS + colour] - before[from * COLOURS + colour];
        }
        count += static_cast<uint32_t>(to - from);
      }
      uint8_t* level =
          &picture.levels[(static_cast<size_t>(y) * picture.width + static_cast<size_t>(x)) * COLOURS];
      for (const uint32_t of_colour : sum) *level++ = static_cast<uint8_t>((of_colour + count / 2) / count);
    }
  }
}

// The light falls off with the square of the distance from the middle, and the filter takes its part.
void ShadeAndTint(const Optics& optics, Picture& picture) {
  uint8_t* level = picture.levels.data();
  for (unsigned y = 0; y < picture.height; ++y) {
    const double down = (y + 0.5) / picture.height * 2 - 1;
    for (unsigned x = 0; x < picture.width; ++x) {
      const double across = (x + 0.5) / picture.width * 2 - 1;
      const double light = 1 - optics.shading / 100.0 * (across * across + down * down) / 2;
      for (const int percent : optics.tint) {
        *level = Rounded(*level * light * percent / 100);
        ++level;
      }
    }
  }
}

// A grain lies out of focus: it takes a part of the light in its middle, and less towards its edge.
void LayDust(const Optics& optics, Picture& picture) {
  std::mt19937 generator(optics.dust_seed);
  const auto random = [&](double from, double to) {
    return std::lerp(from, to, static_cast<double>(generator()) / static_cast<double>(std::mt19937::max()));
  };
  const double shorter_side = std::min(picture.width, picture.height);
  for (int grain = 0; grain < optics.dust; ++grain) {
    const double middle_x = random(0.03, 0.97) * picture.width;
    const double middle_y = random(0.03, 0.97) * picture.height;
    const double radius = std::max(1.5, random(0.006, 0.015) * shorter_side);
    const double darkness = random(0.3, 0.7);
    const auto first = [&](double middle) { return static_cast<unsigned>(std::max(0.0, middle - radius)); };
    const auto end = [&](double middle, unsigned most) {
      return static_cast<unsigned>(std::clamp(middle + radius + 1, 0.0, static_cast<double>(most)));
    };
    for (unsigned y = first(middle_y); y < end(middle_y, picture.height); ++y) {
      for (unsigned x = first(middle_x); x < end(middle_x, picture.width); ++x) {
        const double distance = std::hypot(x + 0.5 - middle_x, y + 0.5 - middle_y) / radius;
        const double light = 1 - darkness * std::max(0.0, 1 - distance * distance);
        uint8_t* level = &picture.levels[(size_t{y} * picture.width + x) * COLOURS];
        for (int colour = 0; colour < COLOURS; ++colour) level[colour] = Rounded(level[colour] * light);
      }
    }
  }
}

}  // namespace

void PassThrough(const Optics& optics, Picture& picture) {
  if (picture.levels.empty()) return;
  if (optics.blur > 0) Blur(optics.blur, picture);
  if (optics.shading != 0 || optics.tint != Optics().tint) ShadeAndTint(optics, picture);
  LayDust(optics, picture);
}

}  // namespace simulator
