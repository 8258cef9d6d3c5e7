// What stands between a scene and the simulated sensor: a lens that may be out of focus or dark towards the
// corners, a cover glass that may carry dust, a filter that may tint the light.
#pragma once

#include <array>
#include <cstdint>

#include "simulator/models/picture.h"

namespace simulator {

struct Optics {
  static constexpr int MOST_DUST = 1000;
  static constexpr int MOST_BLUR = 20;
  static constexpr int MOST_TINT = 400;

  int dust = 0;  // dark spots, at places that the seed decides
  uint32_t dust_seed = 0;
  int blur = 0;                               // radius in pixels of the disc that a point becomes
  int shading = 0;                            // percent of the light that the corners lack
  std::array<int, 3> tint = {100, 100, 100};  // red, green, blue: percent of the light that comes through

  bool operator==(const Optics&) const = default;
};

// Changes the picture to what the sensor gets of it.
void PassThrough(const Optics& optics, Picture& picture);

}  // namespace simulator
