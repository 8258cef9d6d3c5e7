#include "station/tasks/picture_measures.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "station/tasks/brightness_plane.h"

namespace station {

namespace {

constexpr std::size_t COLOURS = 3;

// A pixel is part of a spot if it differs from its surroundings by more than noise does: alone, or as the
// mean with its neighbours. In percent of the local mean.
constexpr double SPOT_OF_ONE_PIXEL = 12;
constexpr double SPOT_OF_NEIGHBOURS = 6;

// A pixel that may be part of a spot, and by how many percent it differs from the local mean: alone, and as
// the mean with its neighbours.
struct OddPixel {
  std::size_t place;
  float alone, with_neighbours;
};

// How many pixels of each row, or column, are darker and brighter than their surroundings.
struct OddLines {
  explicit OddLines(std::size_t lines) : darker(lines), brighter(lines) {}
  std::vector<unsigned> darker, brighter;
};

struct OddPixels {
  std::vector<OddPixel> pixels = {};  // rows from top to bottom
  OddLines rows, columns;
};

OddPixels FindOddPixels(const Plane& brightness) {
  constexpr auto LIMIT = static_cast<float>(SPOT_OF_ONE_PIXEL);
  const std::size_t width = brightness.width;
  LocalMeans surroundings(brightness, std::max(std::min(width, brightness.height) / 16, BLOCK));
  LocalMeans neighbours(brightness, 1);
  std::vector<float> alone(width);
  std::vector<float> with_neighbours(width);
  OddPixels odd{.rows = OddLines(brightness.height), .columns = OddLines(width)};
  for (std::size_t y = 0; y < brightness.height; ++y) {
    const float* row = &brightness.values[y * width];
    const std::vector<float>& local = surroundings.NextRow();
    const std::vector<float>& near = neighbours.NextRow();
    for (std::size_t x = 0; x < width; ++x) {
      const float mean = std::max(local[x], 1.0F);
      alone[x] = 100 * (row[x] - mean) / mean;
      with_neighbours[x] = 100 * (near[x] - mean) / mean;
    }
    for (std::size_t x = 0; x < width; ++x) {
      odd.columns.darker[x] += alone[x] < -LIMIT;
      odd.columns.brighter[x] += alone[x] > LIMIT;
    }
    for (std::size_t x = 0; x < width; ++x) {
      if (std::abs(alone[x]) <= LIMIT && std::abs(with_neighbours[x]) <= SPOT_OF_NEIGHBOURS) continue;
      odd.rows.darker[y] += alone[x] < -LIMIT;
      odd.rows.brighter[y] += alone[x] > LIMIT;
      odd.pixels.push_back({y * width + x, alone[x], with_neighbours[x]});
    }
  }
  return odd;
}

// The rows, or columns, of which more than half differs in the same direction. Adjacent ones are one line.
struct DeadLines {
  std::vector<bool> near_line;  // for each row or column
  int count = 0;
};

DeadLines FindDeadLines(const OddLines& odd, std::size_t length) {
  const std::size_t lines = odd.darker.size();
  DeadLines found{std::vector<bool>(lines), 0};
  bool before = false;
  for (std::size_t line = 0; line < lines; ++line) {
    const bool dead = std::size_t{std::max(odd.darker[line], odd.brighter[line])} * 2 > length;
    if (dead && !before) ++found.count;
    before = dead;
    if (!dead) continue;
    const std::size_t first = line < BLOCK ? 0 : line - BLOCK;
    for (std::size_t i = first; i < std::min(line + BLOCK + 1, lines); ++i) found.near_line[i] = true;
  }
  return found;
}

// Puts copies of good lines in the place of dead ones, so that these darken no local mean.
void Repair(Plane& plane, const DeadLines& rows, const DeadLines& columns) {
  const auto good = [](const DeadLines& lines, std::size_t line) {
    for (std::size_t away = 0; away < lines.near_line.size(); ++away) {
      if (away <= line && !lines.near_line[line - away]) return line - away;
      if (line + away < lines.near_line.size() && !lines.near_line[line + away]) return line + away;
    }
    return line;
  };
  for (std::size_t y = 0; y < plane.height; ++y) {
    for (std::size_t x = 0; x < plane.width; ++x) {
      if (rows.near_line[y] || columns.near_line[x]) {
        plane.values[y * plane.width + x] = plane.At(good(columns, x), good(rows, y));
      }
    }
  }
}

struct Spots {
  int count = 0;
  double strongest = 0;  // percent
};

// The pixels of one spot touch one another, at least by their corners.
void ClearSpot(std::vector<bool>& marked, std::size_t width, std::size_t height, std::size_t start) {
  std::vector<std::size_t> pending = {start};
  marked[start] = false;
  while (!pending.empty()) {
    const std::size_t x = pending.back() % width;
    const std::size_t y = pending.back() / width;
    pending.pop_back();
    for (std::size_t row = y == 0 ? 0 : y - 1; row <= std::min(y + 1, height - 1); ++row) {
      for (std::size_t column = x == 0 ? 0 : x - 1; column <= std::min(x + 1, width - 1); ++column) {
        if (!marked[row * width + column]) continue;
        marked[row * width + column] = false;
        pending.push_back(row * width + column);
      }
    }
  }
}

// Spots that are darker (`sign` -1) or brighter (1) than their surroundings.
Spots FindSpots(const OddPixels& odd, float sign) {
  const std::size_t width = odd.columns.darker.size();
  const std::size_t height = odd.rows.darker.size();
  std::vector<bool> marked(width * height);
  Spots spots;
  for (const OddPixel& pixel : odd.pixels) {
    const float alone = sign * pixel.alone;
    const float with_neighbours = sign * pixel.with_neighbours;
    if (alone <= SPOT_OF_ONE_PIXEL && with_neighbours <= SPOT_OF_NEIGHBOURS) continue;
    marked[pixel.place] = true;
    spots.strongest = std::max<double>(spots.strongest, std::max(alone, with_neighbours));
  }
  for (const OddPixel& pixel : odd.pixels) {
    if (!marked[pixel.place]) continue;
    ++spots.count;
    ClearSpot(marked, width, height, pixel.place);
  }
  return spots;
}

double Shading(const Plane& brightness) {
  const Places places = FindPlaces(brightness.width, brightness.height, 8);
  double darkest = 255;
  for (const Area& corner : places.corners) darkest = std::min(darkest, Mean(brightness, corner));
  const double middle = Mean(brightness, places.middle);
  return middle == 0 ? 0 : 100 * (1 - darkest / middle);
}

// Red, green and blue in the middle.
std::array<double, COLOURS> MiddleColour(const Pixels& picture) {
  const Area middle = FindPlaces(picture.width, picture.height, 8).middle;
  std::array<double, COLOURS> sum{};
  for (std::size_t y = middle.top; y < middle.bottom; ++y) {
    for (std::size_t x = middle.left; x < middle.right; ++x) {
      for (std::size_t colour = 0; colour < COLOURS; ++colour) {
        sum[colour] += picture.levels[(y * picture.width + x) * COLOURS + colour];
      }
    }
  }
  return sum;
}

double LaplacianVariance(const Plane& brightness, const Area& area) {
  double sum = 0;
  double of_squares = 0;
  double count = 0;
  const std::size_t right = std::min(area.right, brightness.width - 1);
  const std::size_t bottom = std::min(area.bottom, brightness.height - 1);
  for (std::size_t y = std::max<std::size_t>(area.top, 1); y < bottom; ++y) {
    for (std::size_t x = std::max<std::size_t>(area.left, 1); x < right; ++x) {
      const double around = brightness.At(x - 1, y) + brightness.At(x + 1, y) + brightness.At(x, y - 1) +
                            brightness.At(x, y + 1);
      const double value = around - 4 * brightness.At(x, y);
      sum += value;
      of_squares += value * value;
      ++count;
    }
  }
  return count == 0 ? 0 : of_squares / count - sum / count * (sum / count);
}

Reading Count(const char* name, int count) {
  return {name, count, std::to_string(count)};
}

// Rounded: the digits after it say nothing.
Reading Measured(const char* name, double value, const char* unit) {
  const double rounded = std::round(value * 10) / 10;
  return {name, rounded, fmt::format("{:.1f}", rounded), unit};
}

}  // namespace

std::vector<Reading> MeasureBlemishes(const Pixels& picture) {
  if (picture.levels.empty()) return {};
  Plane brightness = Brightness(picture);
  OddPixels odd = FindOddPixels(brightness);
  const DeadLines rows = FindDeadLines(odd.rows, picture.width);
  const DeadLines columns = FindDeadLines(odd.columns, picture.height);
  if (rows.count + columns.count > 0) {
    Repair(brightness, rows, columns);
    odd = FindOddPixels(brightness);
  }
  const Spots dark = FindSpots(odd, -1);
  const Spots bright = FindSpots(odd, 1);
  const auto [red, green, blue] = MiddleColour(picture);
  const double whole = std::max(green, 1.0);
  return {Count("dark-spots", dark.count),
          Measured("darkest-spot", dark.strongest, "%"),
          Count("bright-spots", bright.count),
          Measured("brightest-spot", bright.strongest, "%"),
          Count("dead-lines", rows.count + columns.count),
          Measured("shading", Shading(brightness), "%"),
          Measured("red-balance", 100 * red / whole, "%"),
          Measured("blue-balance", 100 * blue / whole, "%")};
}

std::vector<Reading> MeasureFocus(const Pixels& picture) {
  if (picture.levels.empty()) return {};
  const Plane brightness = Brightness(picture);
  const Places places = FindPlaces(picture.width, picture.height, 5);
  constexpr const char* CORNERS[] = {"sharpness-top-left", "sharpness-top-right", "sharpness-bottom-left",
                                     "sharpness-bottom-right"};
  std::vector<Reading> readings = {
      Measured("sharpness-middle", LaplacianVariance(brightness, places.middle), "levels²")};
  for (std::size_t i = 0; i < places.corners.size(); ++i) {
    readings.push_back(Measured(CORNERS[i], LaplacianVariance(brightness, places.corners[i]), "levels²"));
  }
  return readings;
}

}  // namespace station
