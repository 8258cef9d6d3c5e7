// What stands before the simulated phone's camera: a still scene by which sharpness and colours can be
// judged, and an even card that shows what the sensor and the lens do to the light.
#pragma once

#include <cstdint>

#include "simulator/models/picture.h"

namespace simulator {

// The scene in any size, always the same view for a seed: a wall with a colour gradient, darker towards the
// corners; a star and lines of 1 to 4 pixels for sharpness, two slanted squares, colour patches, a coarse
// cloth. Each corner has its own colour, red and green above, blue and yellow below, from the left, and a
// small star. Another seed changes the wall, the stars, the squares, the patches' order and the cloth.
Picture DrawCameraScene(unsigned width, unsigned height, uint32_t seed);

// A grey card under nearly even light, a little darker towards the corners. The seed decides its paper's
// grain, how light it is, and from where the light comes.
Picture DrawCameraCard(unsigned width, unsigned height, uint32_t seed);

}  // namespace simulator
