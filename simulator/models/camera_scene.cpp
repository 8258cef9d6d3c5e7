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

double Radians(double degrees) {
  return degrees * std::numbers::pi / 180;
}

// What a seed decides, except the grain of the cloth and the card.
struct Variation {
  explicit Variation(uint32_t of)
      : seed(of),
        wall{0.06 * Varied(of, 0), 0.06 * Varied(of, 1), 0.06 * Varied(of, 2)},
        spokes(24 + std::round(4 * Varied(of, 3))),
        corner_spokes(8 + std::round(Varied(of, 3))),
        star_across(0.5 + 0.03 * Varied(of, 4)),
        slant(Radians(5 + 2 * Varied(of, 5))),
        light(0.7 + 0.08 * Varied(of, 6)),
        warmth(0.02 * Varied(of, 7)),
        to_light(std::numbers::pi * Varied(of, 8)) {}

  // As the pixels need it.
  struct Direction {
    explicit Direction(double angle) : cosine(std::cos(angle)), sine(std::sin(angle)) {}
    double cosine, sine;
  };

  uint32_t seed;
  Colour wall;  // added to the wall's own
  double spokes, corner_spokes;
  double star_across;
  Direction slant;
  double light, warmth;
  Direction to_light;
};

// A pixel, and where its middle lies in the view: from 0 to 1 across and down.
struct Place {
  unsigned x, y;
  double across, down;
  unsigned width, height;
  double shorter_side;  // pixels
  const Variation& varied;
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
  const double right = (place.across - across) * place.width;
  const double below = (place.down - down) * place.height;
  const double pixels = radius * place.shorter_side;
  if (right * right + below * below > pixels * pixels) return std::nullopt;
  const double angle = std::atan2(below, right);
  return std::sin(angle * spokes) < 0 ? BLACK : WHITE;
}

std::optional<Colour> Star(const Place& place) {
  constexpr double RADIUS = 0.2;
  return StarAt(place, place.varied.star_across, 0.42, RADIUS, place.varied.spokes);
}

// One at the inner side of each corner's mark.
std::optional<Colour> CornerStars(const Place& place) {
  constexpr double FROM_SIDES = 0.12, RADIUS = 0.035;
  const double across = FROM_SIDES * place.shorter_side / place.width;
  const double down = FROM_SIDES * place.shorter_side / place.height;
  return StarAt(place, place.across < 0.5 ? across : 1 - across, place.down < 0.5 ? down : 1 - down, RADIUS,
                place.varied.corner_spokes);
}

std::optional<Colour> SlantedSquare(const Place& place) {
  constexpr double DOWN = 0.42, HALF_SIDE = 0.1;
  const auto [cosine, sine] = place.varied.slant;
  for (const double middle : {0.15, 0.85}) {
    const double right = (place.across - middle) * place.width;
    const double below = (place.down - DOWN) * place.height;
    const double along = std::abs(right * cosine + below * sine);
    const double over = std::abs(below * cosine - right * sine);
    if (std::max(along, over) < HALF_SIDE * place.shorter_side) return BLACK;
  }
  return std::nullopt;
}

std::optional<Colour> Patches(const Place& place) {
  static constexpr Colour PATCHES[] = {{0.45, 0.32, 0.27}, {0.76, 0.58, 0.51}, {0.85, 0.1, 0.1},
                                       {0.1, 0.6, 0.2},    {0.1, 0.15, 0.8},   {0.9, 0.8, 0.1},
                                       {0.7, 0.1, 0.6},    {0, 0.55, 0.65},    WHITE,
                                       {0.6, 0.6, 0.6},    {0.3, 0.3, 0.3},    BLACK};
  constexpr double LEFT = 0.14, RIGHT = 0.86, TOP = 0.82, BOTTOM = 0.92;
  if (!IsWithin(place.across, LEFT, RIGHT) || !IsWithin(place.down, TOP, BOTTOM)) return std::nullopt;
  const auto patch = static_cast<size_t>((place.across - LEFT) / (RIGHT - LEFT) * std::size(PATCHES));
  return PATCHES[(patch + place.varied.seed) % std::size(PATCHES)];
}

// std::lerp judges special values first, which takes most of the time of a cloth.
double Mix(double from, double to, double part) {
  return from + part * (to - from);
}

// Random values at whole numbers, and smooth between them.
double Noise(double x, double y, uint32_t seed) {
  const auto column = static_cast<uint32_t>(x);
  const auto row = static_cast<uint32_t>(y);
  const auto smooth = [](double t) { return t * t * (3 - 2 * t); };
  const double right = smooth(x - column);
  const double below = smooth(y - row);
  const auto corner = [seed](uint32_t c, uint32_t r) { return Random(c + r * 65599U + seed * 7919U); };
  return Mix(Mix(corner(column, row), corner(column + 1, row), right),
             Mix(corner(column, row + 1), corner(column + 1, row + 1), right), below);
}

std::optional<Colour> Cloth(const Place& place) {
  constexpr double TOP = 0.62, BOTTOM = 0.78;
  if (!IsWithin(place.down, TOP, BOTTOM)) return std::nullopt;
  const double x = place.across * place.width / place.shorter_side;
  const double y = place.down * place.height / place.shorter_side;
  double light = 0;
  double weight = 0.5;
  for (const double threads : {20.0, 40.0, 80.0, 160.0, 320.0}) {
    light += weight * Noise(x * threads, y * threads, place.varied.seed);
    weight /= 2;
  }
  return Colour{0.15 + 0.6 * light, 0.1 + 0.45 * light, 0.3 * light};
}

Colour Wall(const Place& place) {
  const double t = (place.across + place.down) / 2;
  const Colour& added = place.varied.wall;
  return {Mix(0.62, 0.85, t) + added.red, Mix(0.75, 0.66, t) + added.green, Mix(0.92, 0.5, t) + added.blue};
}

Colour SceneColour(const Place& place) {
  static constexpr Element ELEMENTS[] = {Corner, CornerStars, Lines, Star, SlantedSquare, Patches, Cloth};
  for (const Element element : ELEMENTS) {
    if (const auto colour = element(place)) return *colour;
  }
  return Wall(place);
}

Colour CardColour(const Place& place) {
  constexpr double GRAINS = 90;  // along the shorter side
  const auto [cosine, sine] = place.varied.to_light;
  const double towards_light = (place.across - 0.5) * cosine + (place.down - 0.5) * sine;
  const double x = place.across * place.width / place.shorter_side;
  const double y = place.down * place.height / place.shorter_side;
  const double grain = Noise(x * GRAINS, y * GRAINS, place.varied.seed) - 0.5;
  const double light = place.varied.light + 0.04 * towards_light + 0.012 * grain;
  const double warmth = place.varied.warmth;
  return {light * (1 + warmth), light, light * (1 - warmth)};
}

uint8_t Level(double light) {
  return static_cast<uint8_t>(std::clamp(light, 0.0, 1.0) * 255 + 0.5);
}

// Each pixel with its colour, under a light that falls off towards the corners.
Picture Draw(unsigned width, unsigned height, uint32_t seed, Colour (*colour_at)(const Place&)) {
  Picture picture = {width, height, std::vector<uint8_t>(size_t{width} * height * 3)};
  auto level = picture.levels.begin();
  const Variation varied(seed);
  for (unsigned y = 0; y < height; ++y) {
    for (unsigned x = 0; x < width; ++x) {
      const double across = (x + 0.5) / width;
      const double down = (y + 0.5) / height;
      const auto shorter_side = static_cast<double>(std::min(width, height));
      const Colour colour = colour_at({x, y, across, down, width, height, shorter_side, varied});
      const double fall_off = 1 - 0.5 * ((across - 0.5) * (across - 0.5) + (down - 0.5) * (down - 0.5));
      for (const double light : {colour.red, colour.green, colour.blue}) {
        *level++ = Level(light * fall_off);
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
