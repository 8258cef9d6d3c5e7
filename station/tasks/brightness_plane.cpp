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
  Plane plane{picture.width, picture.height, std::vector<float>(picture.width * picture.height)};
  const std::uint8_t* level = picture.levels.data();
  for (float& value : plane.values) {
    value = 0.299F * level[0] + 0.587F * level[1] + 0.114F * level[2];
    level += 3;
  }
  return plane;
}

LocalMeans::LocalMeans(const Plane& plane, std::size_t reach)
    : plane_(plane), reach_(reach), columns_(plane.width), sums_(plane.width + 1), means_(plane.width) {
  for (std::size_t x = 0; x < plane.width; ++x) {
    const auto [left, right] = Window(x, plane.width, reach, BLOCK);
    across_.push_back({left, right, 1 / static_cast<double>(right - left)});
  }
}

// The rectangle moves down: each row of the plane is added once and taken away once.
const std::vector<float>& LocalMeans::NextRow() {
  const auto [top, bottom] = Window(row_++, plane_.height, reach_, BLOCK);
  const std::size_t width = plane_.width;
  for (; last_ < bottom; ++last_) {
    for (std::size_t x = 0; x < width; ++x) columns_[x] += plane_.values[last_ * width + x];
  }
  for (; first_ < top; ++first_) {
    for (std::size_t x = 0; x < width; ++x) columns_[x] -= plane_.values[first_ * width + x];
  }
  for (std::size_t x = 0; x < width; ++x) sums_[x + 1] = sums_[x] + columns_[x];
  const double part = 1 / static_cast<double>(bottom - top);
  for (std::size_t x = 0; x < width; ++x) {
    const Reach& reach = across_[x];
    means_[x] = static_cast<float>((sums_[reach.right] - sums_[reach.left]) * reach.part * part);
  }
  return means_;
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
