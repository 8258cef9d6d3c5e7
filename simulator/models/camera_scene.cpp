#include "simulator/models/camera_scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <optional>

#include "simulator/models/value_noise.h"

namespace simulator {
namespace {

// From 0 to 1 each.
struct Colour {
  double red, green, blue;
};

constexpr Colour BLACK = {0.04, 0.04, 0.04};
constexpr Colour WHITE = {0.95, 0.95, 0.95};

// One of the things in which a view differs from that of another seed: from -1 to 1, and 0 for seed 0.
double Varied(uint32_t seed, uint32_t which) {
  return seed == 0 ? 0 : 2 * RandomValue(seed * 0x9E3779B9U + which) - 1;
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

// A pixel, and where its middle lies in the view: from 0 to 1 across and down, and in parts of the shorter
// side.
struct Place {
  unsigned x, y;
  double across, down;
  double right, below;
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

class Cloth {
 public:
  std::optional<Colour> At(const Place& place) {
    constexpr double TOP = 0.62, BOTTOM = 0.78;
    if (!IsWithin(place.down, TOP, BOTTOM)) return std::nullopt;
    double light = 0;
    double weight = 0.5;
    double threads = 20;  // along the shorter side
    for (ValueNoise& noise : noises_) {
      light += weight * noise.At(place.right * threads, place.below * threads, place.varied.seed);
      weight /= 2;
      threads *= 2;
    }
    return Colour{0.15 + 0.6 * light, 0.1 + 0.45 * light, 0.3 * light};
  }

 private:
  std::array<ValueNoise, 5> noises_;
};

Colour Wall(const Place& place) {
  const double t = (place.across + place.down) / 2;
  const Colour& added = place.varied.wall;
  return {Mix(0.62, 0.85, t) + added.red, Mix(0.75, 0.66, t) + added.green, Mix(0.92, 0.5, t) + added.blue};
}

class Scene {
 public:
  Colour At(const Place& place) {
    static constexpr Element ELEMENTS[] = {Corner, CornerStars, Lines, Star, SlantedSquare, Patches};
    for (const Element element : ELEMENTS) {
      if (const auto colour = element(place)) return *colour;
    }
    return cloth_.At(place).value_or(Wall(place));
  }

 private:
  Cloth cloth_;
};

class Card {
 public:
  Colour At(const Place& place) {
    constexpr double GRAINS = 90;  // along the shorter side
    const auto [cosine, sine] = place.varied.to_light;
    const double towards_light = (place.across - 0.5) * cosine + (place.down - 0.5) * sine;
    const double grain = noise_.At(place.right * GRAINS, place.below * GRAINS, place.varied.seed) - 0.5;
    const double light = place.varied.light + 0.04 * towards_light + 0.012 * grain;
    const double warmth = place.varied.warmth;
    return {light * (1 + warmth), light, light * (1 - warmth)};
  }

 private:
  ValueNoise noise_;
};

uint8_t Level(double light) {
  return static_cast<uint8_t>(std::clamp(light, 0.0, 1.0) * 255 + 0.5);
}

// Where a pixel's middle lies along a side: from 0 to 1, in parts of the shorter side, and the square of its
// way from the side's middle.
struct Along {
  double place, in_shorter_sides, from_middle_squared;
};

std::vector<Along> Side(unsigned length, double shorter_side) {
  std::vector<Along> side;
  for (unsigned pixel = 0; pixel < length; ++pixel) {
    const double place = (pixel + 0.5) / length;
    side.push_back({place, place * length / shorter_side, (place - 0.5) * (place - 0.5)});
  }
  return side;
}

// Each pixel with its colour, under a light that falls off towards the corners.
template <typename View>
Picture Draw(unsigned width, unsigned height, uint32_t seed) {
  Picture picture = {width, height, std::vector<uint8_t>(size_t{width} * height * 3)};
  uint8_t* level = picture.levels.data();
  const Variation varied(seed);
  const auto shorter_side = static_cast<double>(std::min(width, height));
  const std::vector<Along> across = Side(width, shorter_side);
  const std::vector<Along> down = Side(height, shorter_side);
  View view;
  for (unsigned y = 0; y < height; ++y) {
    for (unsigned x = 0; x < width; ++x) {
      const Colour colour = view.At({x, y, across[x].place, down[y].place, across[x].in_shorter_sides,
                                     down[y].in_shorter_sides, width, height, shorter_side, varied});
      const double fall_off = 1 - 0.5 * (across[x].from_middle_squared + down[y].from_middle_squared);
      for (const double light : {colour.red, colour.green, colour.blue}) {
        *level++ = Level(light * fall_off);
      }
    }
  }
  return picture;
}

}  // namespace

Picture DrawCameraScene(unsigned width, unsigned height, uint32_t seed) {
  return Draw<Scene>(width, height, seed);
}

Picture DrawCameraCard(unsigned width, unsigned height, uint32_t seed) {
  return Draw<Card>(width, height, seed);
}

}  // namespace simulator
