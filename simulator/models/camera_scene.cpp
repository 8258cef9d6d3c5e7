#include "simulator/models/camera_scene.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>

namespace simulator {
namespace {

// From 0 to 1 each.
struct Colour {
  double red, green, blue;
};

constexpr Colour BLACK = {0.04, 0.04, 0.04};
constexpr Colour WHITE = {0.95, 0.95, 0.95};

// From 0 to 1, without order.
double Random(uint32_t number) {
  number = (number ^ number >> 16) * 0x7FEB352DU;
  number = (number ^ number >> 15) * 0x846CA68BU;
  return static_cast<double>(number ^ number >> 16) / 4294967296.0;
}

// One of the things in which a view differs from that of another seed: from -1 to 1, and 0 for seed 0.
double Varied(uint32_t seed, uint32_t which) {
  return seed == 0 ? 0 : 2 * Random(seed * 0x9E3779B9U + which) - 1;
}

enum Variation : uint32_t { WALL_RED, WALL_GREEN, WALL_BLUE, SPOKES, STAR, SLANT, LIGHT, WARMTH, DIRECTION };

// A pixel, and where its middle lies in the view: from 0 to 1 across and down.
struct Place {
  unsigned x, y;
  double across, down;
  unsigned width, height;
  double shorter_side;  // pixels
  uint32_t seed;

  double PixelsFrom(double across_there, double down_there) const {
    return std::hypot((across - across_there) * width, (down - down_there) * height);
  }
};

// An element of the scene has a colour where it covers the wall.
using Element = std::optional<Colour> (*)(const Place&);

bool IsWithin(double value, double from, double to) {
  return value >= from && value < to;
}

// Square marks, at least a pixel large.
std::optional<Colour> Corner(const Place& place) {
  const auto side = static_cast<unsigned>(std::max(1.0, place.shorter_side * 0.09));
  const bool left = place.x < side;
  const bool top = place.y < side;
  const bool right = place.x >= place.width - side;
  const bool bottom = place.y >= place.height - side;
  if (left && top) return Colour{0.9, 0.1, 0.1};
  if (right && top) return Colour{0.1, 0.75, 0.15};
  if (left && bottom) return Colour{0.1, 0.2, 0.9};
  if (right && bottom) return Colour{0.95, 0.85, 0.1};
  return std::nullopt;
}

// Four fields, with lines of 1 to 4 pixels: upright ones in the upper half, level ones below.
std::optional<Colour> Lines(const Place& place) {
  constexpr double LEFT = 0.16, RIGHT = 0.84, TOP = 0.06, MIDDLE = 0.12, BOTTOM = 0.18;
  if (!IsWithin(place.across, LEFT, RIGHT) || !IsWithin(place.down, TOP, BOTTOM)) return std::nullopt;
  const auto thickness = static_cast<unsigned>((place.across - LEFT) / (RIGHT - LEFT) * 4) + 1;
  const unsigned line = (place.down < MIDDLE ? place.x : place.y) / thickness;
  return line % 2 == 0 ? BLACK : WHITE;
}

std::optional<Colour> StarAt(const Place& place, double across, double down, double radius, double spokes) {
  if (place.PixelsFrom(across, down) > radius * place.shorter_side) return std::nullopt;
  const double angle = std::atan2((place.down - down) * place.height, (place.across - across) * place.width);
  return std::sin(angle * spokes) < 0 ? BLACK : WHITE;
}

std::optional<Colour> Star(const Place& place) {
  constexpr double RADIUS = 0.2;
  const double spokes = 24 + std::round(4 * Varied(place.seed, SPOKES));
  return StarAt(place, 0.5 + 0.03 * Varied(place.seed, STAR), 0.42, RADIUS, spokes);
}

// One at the inner side of each corner's mark.
std::optional<Colour> CornerStars(const Place& place) {
  constexpr double FROM_SIDES = 0.12, RADIUS = 0.035;
  const double spokes = 8 + std::round(Varied(place.seed, SPOKES));
  const double across = FROM_SIDES * place.shorter_side / place.width;
  const double down = FROM_SIDES * place.shorter_side / place.height;
  return StarAt(place, place.across < 0.5 ? across : 1 - across, place.down < 0.5 ? down : 1 - down, RADIUS,
                spokes);
}

std::optional<Colour> SlantedSquare(const Place& place) {
  constexpr double DOWN = 0.42, HALF_SIDE = 0.1;
  const double slant = (5 + 2 * Varied(place.seed, SLANT)) * std::numbers::pi / 180;
  for (const double middle : {0.15, 0.85}) {
    const double right = (place.across - middle) * place.width;
    const double below = (place.down - DOWN) * place.height;
    const double along = std::abs(right * std::cos(slant) + below * std::sin(slant));
    const double over = std::abs(below * std::cos(slant) - right * std::sin(slant));
    if (std::max(along, over) < HALF_SIDE * place.shorter_side) return BLACK;
  }
  return std::nullopt;
}

std::optional<Colour> Patches(const Place& place) {
  constexpr Colour PATCHES[] = {{0.45, 0.32, 0.27}, {0.76, 0.58, 0.51}, {0.85, 0.1, 0.1},
                                {0.1, 0.6, 0.2},    {0.1, 0.15, 0.8},   {0.9, 0.8, 0.1},
                                {0.7, 0.1, 0.6},    {0, 0.55, 0.65},    WHITE,
                                {0.6, 0.6, 0.6},    {0.3, 0.3, 0.3},    BLACK};
  constexpr double LEFT = 0.14, RIGHT = 0.86, TOP = 0.82, BOTTOM = 0.92;
  if (!IsWithin(place.across, LEFT, RIGHT) || !IsWithin(place.down, TOP, BOTTOM)) return std::nullopt;
  const auto patch = static_cast<size_t>((place.across - LEFT) / (RIGHT - LEFT) * std::size(PATCHES));
  return PATCHES[(patch + place.seed) % std::size(PATCHES)];
}

// Random values at whole numbers, and smooth between them.
double Noise(double x, double y, uint32_t seed) {
  const auto column = static_cast<uint32_t>(x);
  const auto row = static_cast<uint32_t>(y);
  const auto smooth = [](double t) { return t * t * (3 - 2 * t); };
  const double right = smooth(x - column);
  const double below = smooth(y - row);
  const auto corner = [seed](uint32_t c, uint32_t r) { return Random(c + r * 65599U + seed * 7919U); };
  return std::lerp(std::lerp(corner(column, row), corner(column + 1, row), right),
                   std::lerp(corner(column, row + 1), corner(column + 1, row + 1), right), below);
}

std::optional<Colour> Cloth(const Place& place) {
  constexpr double TOP = 0.62, BOTTOM = 0.78;
  if (!IsWithin(place.down, TOP, BOTTOM)) return std::nullopt;
  const double x = place.across * place.width / place.shorter_side;
  const double y = place.down * place.height / place.shorter_side;
  double light = 0;
  double weight = 0.5;
  for (const double threads : {20.0, 40.0, 80.0, 160.0, 320.0}) {
    light += weight * Noise(x * threads, y * threads, place.seed);
    weight /= 2;
  }
  return Colour{0.15 + 0.6 * light, 0.1 + 0.45 * light, 0.3 * light};
}

Colour Wall(const Place& place) {
  const double t = (place.across + place.down) / 2;
  const auto varied = [&](uint32_t which) { return 0.06 * Varied(place.seed, which); };
  return {std::lerp(0.62, 0.85, t) + varied(WALL_RED), std::lerp(0.75, 0.66, t) + varied(WALL_GREEN),
          std::lerp(0.92, 0.5, t) + varied(WALL_BLUE)};
}

Colour SceneColour(const Place& place) {
  constexpr Element ELEMENTS[] = {Corner, CornerStars, Lines, Star, SlantedSquare, Patches, Cloth};
  for (const Element element : ELEMENTS) {
    if (const auto colour = element(place)) return *colour;
  }
  return Wall(place);
}

Colour CardColour(const Place& place) {
  constexpr double GRAINS = 90;  // along the shorter side
  const double direction = std::numbers::pi * Varied(place.seed, DIRECTION);
  const double towards_light =
      (place.across - 0.5) * std::cos(direction) + (place.down - 0.5) * std::sin(direction);
  const double x = place.across * place.width / place.shorter_side;
  const double y = place.down * place.height / place.shorter_side;
  const double grain = Noise(x * GRAINS, y * GRAINS, place.seed) - 0.5;
  const double light = 0.7 + 0.08 * Varied(place.seed, LIGHT) + 0.04 * towards_light + 0.012 * grain;
  const double warmth = 0.02 * Varied(place.seed, WARMTH);
  return {light * (1 + warmth), light, light * (1 - warmth)};
}

uint8_t Level(double light) {
  return static_cast<uint8_t>(std::lround(std::clamp(light, 0.0, 1.0) * 255));
}

// Each pixel with its colour, under a light that falls off towards the corners.
Picture Draw(unsigned width, unsigned height, uint32_t seed, Colour (*colour_at)(const Place&)) {
  Picture picture = {width, height, {}};
  picture.levels.reserve(size_t{width} * height * 3);
  for (unsigned y = 0; y < height; ++y) {
    for (unsigned x = 0; x < width; ++x) {
      const double across = (x + 0.5) / width;
      const double down = (y + 0.5) / height;
      const auto shorter_side = static_cast<double>(std::min(width, height));
      const Colour colour = colour_at({x, y, across, down, width, height, shorter_side, seed});
      const double fall_off = 1 - 0.5 * ((across - 0.5) * (across - 0.5) + (down - 0.5) * (down - 0.5));
      for (const double light : {colour.red, colour.green, colour.blue}) {
        picture.levels.push_back(Level(light * fall_off));
      }
    }
  }
  return picture;
}

}  // namespace

Picture DrawCameraScene(unsigned width, unsigned height, uint32_t seed) {
  return Draw(width, height, seed, SceneColour);
}

Picture DrawCameraCard(unsigned width, unsigned height, uint32_t seed) {
  return Draw(width, height, seed, CardColour);
}

}  // namespace simulator
