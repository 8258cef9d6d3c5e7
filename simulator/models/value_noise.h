// Random values that are the same for the same numbers, and value noise: a texture without a pattern.
#pragma once

#include <cstdint>
#include <optional>

namespace simulator {

// From 0 to 1, without order.
inline double RandomValue(uint32_t number) {
  number = (number ^ number >> 16) * 0x7FEB352DU;
  number = (number ^ number >> 15) * 0x846CA68BU;
  return static_cast<double>(number ^ number >> 16) / 4294967296.0;
}

// std::lerp judges special values first, which takes most of the time of a cloth.
inline double Mix(double from, double to, double part) {
  return from + part * (to - from);
}

// Random values at whole numbers, and smooth between them. Neighbouring pixels lie between the same numbers
// mostly, so the last four values are kept.
class ValueNoise {
 public:
  double At(double x, double y, uint32_t seed) {
    const auto column = static_cast<uint32_t>(x);
    const auto row = static_cast<uint32_t>(y);
    if (Cell cell = {column, row, seed}; !cell_ || *cell_ != cell) {
      const auto corner = [seed](uint32_t c, uint32_t r) {
        return RandomValue(c + r * 65599U + seed * 7919U);
      };
      cell_ = cell;
      above_ = {corner(column, row), corner(column + 1, row)};
      below_ = {corner(column, row + 1), corner(column + 1, row + 1)};
    }
    const auto smooth = [](double t) { return t * t * (3 - 2 * t); };
    const double right = smooth(x - column);
    return Mix(Mix(above_.left, above_.right, right), Mix(below_.left, below_.right, right), smooth(y - row));
  }

 private:
  struct Cell {
    uint32_t column, row, seed;
    bool operator==(const Cell&) const = default;
  };
  struct Corners {
    double left, right;
  };
  std::optional<Cell> cell_;
  Corners above_ = {}, below_ = {};
};

}  // namespace simulator
