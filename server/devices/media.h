// Prepared media clips, played by the phone's player in the background.
#pragma once

#include <cstdint>

constexpr int32_t CLIP_STOP = 0;
constexpr int32_t CLIP_MP3 = 10;
constexpr int32_t CLIP_AAC = 20;
constexpr int32_t CLIP_AMR = 21;
constexpr int32_t CLIP_PRELOADED = 30;

// Plays a clip. The player receives `path` and `argument`; path 2 switches audio line B on. CLIP_STOP ends
// whatever plays. Two seconds after the start of the AMR clip its route is set; this returns -9989 if the
// mixer cannot be opened, and -9992, -9892, -9792 and -9692 if its first to fourth request fails. Otherwise
// returns 0, or -9994 if there is no such clip.
int32_t MediaPlay(int32_t clip, int32_t path, int32_t argument);
