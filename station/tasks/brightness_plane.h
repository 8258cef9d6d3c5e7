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

// The mean of the rectangle of pixels that reaches `reach` pixels to each side, for a row of pixels after
// another. Near a border the rectangle is smaller, so that the pixel stays in its middle: light that falls
// off evenly then has the mean of its middle. It reaches BLOCK pixels into the picture even at the border.
class LocalMeans {
 public:
  // The plane must live as long as this does.
  LocalMeans(const Plane& plane, std::size_t reach);

  // Of the next row, from the top one on. Valid until the next call.
  const std::vector<float>& NextRow();

 private:
  struct Reach {
    std::size_t left, right;
    double part;  // one divided by the number of columns
  };

  const Plane& plane_;
  std::size_t reach_;
  std::vector<Reach> across_;
  std::vector<double> columns_;  // sums of the rows in the rectangle
  std::vector<double> sums_;     // of the columns before each
  std::size_t row_ = 0, first_ = 0, last_ = 0;
  std::vector<float> means_;
};

double Mean(const Plane& plane, const Area& area);

// The middle and the four corners of a picture; each is as large as one of `parts` parts of each side.
struct Places {
  Area middle;
  std::array<Area, 4> corners;  // top left, top right, bottom left, bottom right
};

Places FindPlaces(std::size_t width, std::size_t height, std::size_t parts);

}  // namespace station
