// What stands before the simulated phone's camera: a still scene by which a picture can be judged.
#pragma once

#include "simulator/models/picture.h"

namespace simulator {

// The scene in any size, always the same view: a wall with a colour gradient, darker towards the corners; a
// star and lines of 1 to 4 pixels for sharpness, two slanted squares, colour patches, a coarse cloth. Each
// corner has its own colour: red and green above, blue and yellow below, from the left.
Picture DrawCameraScene(unsigned width, unsigned height);

}  // namespace simulator
