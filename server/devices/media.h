// Prepared media clips, played by the phone's player in the background.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Plays a clip. The player receives `path` and `argument`; path 2 switches audio line B on. CLIP_STOP ends
// whatever plays. Two seconds after the start of the AMR clip its route is set; this returns -9989 if the
// mixer cannot be opened, and -9992, -9892, -9792 and -9692 if its first to fourth request fails. Otherwise
// returns 0, or -9994 if there is no such clip.
int32_t MediaPlay(int32_t clip, int32_t path, int32_t argument);
