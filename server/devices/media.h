// Prepared media clips, played by the phone's player in the background.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Plays a clip; the player gets `path` and `argument`, and path 2 switches audio line B on. CLIP_STOP ends
// whatever plays. The AMR clip's route is set two seconds later: -9989 when the mixer cannot be opened,
// -9992, -9892, -9792 and -9692 for its first to fourth request. Gives 0 else; -9994 for a clip that there is
// not.
int32_t MediaPlay(int32_t clip, int32_t path, int32_t argument);
