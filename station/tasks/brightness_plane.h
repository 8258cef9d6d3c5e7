// The brightness of a picture's pixels, and means of it.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "station/tasks/jpeg_check.h"

namespace station {

// JPEG coding spreads a dead line over its blocks of this many pixels.
constexpr std::size_t BLOCK = 8;

struct Area {
  std::size_t left, top, right, bottom;  // right and bottom are outside
};

// One number for each pixel.
struct Plane {
  std::size_t width, height;
  std::vector<float> values;

  float At(std::size_t x, std::size_t y) const {
    return values[y * width + x];
  }
};

// ITU-R BT.601's luma, from 0 to 255.
Plane Brightness(const Pixels& picture);

// The mean of the rectangle of pixels that reaches `reach` pixels to each side. Near a border the rectangle
// is smaller, so that the pixel stays in its middle: light that falls off evenly then has the mean of its
// middle. It reaches BLOCK pixels into the picture even at the border.
Plane LocalMean(const Plane& plane, std::size_t reach);

double Mean(const Plane& plane, const Area& area);

// The middle and the four corners of a picture; each is as large as one of `parts` parts of each side.
struct Places {
  Area middle;
  std::array<Area, 4> corners;  // top left, top right, bottom left, bottom right
};

Places FindPlaces(std::size_t width, std::size_t height, std::size_t parts);

}  // namespace station
