#include "station/tasks/brightness_plane.h"

#include <algorithm>
#include <utility>

namespace station {

namespace {

// The first place of a window around a place, and the place after its last.
std::pair<std::size_t, std::size_t> Window(std::size_t place, std::size_t length, std::size_t reach,
                                           std::size_t least) {
  const std::size_t own = std::clamp(std::min(place, length - 1 - place), std::min(least, reach), reach);
  return {place < own ? 0 : place - own, std::min(place + own + 1, length)};
}

}  // namespace

Plane Brightness(const Pixels& picture) {
  Plane plane{picture.width, picture.height, {}};
  plane.values.reserve(picture.width * picture.height);
  for (std::size_t i = 0; i < picture.levels.size(); i += 3) {
    const std::uint8_t* level = &picture.levels[i];
    plane.values.push_back(0.299F * level[0] + 0.587F * level[1] + 0.114F * level[2]);
  }
  return plane;
}

Plane LocalMean(const Plane& plane, std::size_t reach) {
  const auto [width, height] = std::pair(plane.width, plane.height);
  std::vector<double> sums((width + 1) * (height + 1));  // of all values above and to the left
  for (std::size_t y = 0; y < height; ++y) {
    double row = 0;
    for (std::size_t x = 0; x < width; ++x) {
      row += plane.At(x, y);
      sums[(y + 1) * (width + 1) + x + 1] = sums[y * (width + 1) + x + 1] + row;
    }
  }
  std::vector<std::pair<std::size_t, std::size_t>> across;
  for (std::size_t x = 0; x < width; ++x) across.push_back(Window(x, width, reach, BLOCK));
  Plane mean{width, height, {}};
  mean.values.reserve(plane.values.size());
  for (std::size_t y = 0; y < height; ++y) {
    const auto [top, bottom] = Window(y, height, reach, BLOCK);
    const double* above = &sums[top * (width + 1)];
    const double* below = &sums[bottom * (width + 1)];
    for (const auto& [left, right] : across) {
      const double sum = below[right] - below[left] - above[right] + above[left];
      mean.values.push_back(static_cast<float>(sum / static_cast<double>((bottom - top) * (right - left))));
    }
  }
  return mean;
}

double Mean(const Plane& plane, const Area& area) {
  double sum = 0;
  for (std::size_t y = area.top; y < area.bottom; ++y) {
    for (std::size_t x = area.left; x < area.right; ++x) sum += plane.At(x, y);
  }
  return sum / static_cast<double>((area.right - area.left) * (area.bottom - area.top));
}

Places FindPlaces(std::size_t width, std::size_t height, std::size_t parts) {
  const std::size_t across = std::max<std::size_t>(width / parts, 1);
  const std::size_t down = std::max<std::size_t>(height / parts, 1);
  const auto at = [&](std::size_t left, std::size_t top) {
    return Area{left, top, left + across, top + down};
  };
  return {at((width - across) / 2, (height - down) / 2),
          {at(0, 0), at(width - across, 0), at(0, height - down), at(width - across, height - down)}};
}

}  // namespace station
