// The codec's signal routes, gains and volume.
#pragma once

#include <cstdint>

// What a routine of this unit gives when the driver cannot be opened: the low byte of -1.
constexpr int32_t SOUND_NOT_OPENED = 255;

// Modes that `AudioSetDspRoute` and the path set-up write.
constexpr int32_t SOUND_MODE_15 = 15;
constexpr int32_t SOUND_MODE_48 = 48;
constexpr int32_t SOUND_MODE_768 = 768;

// Routes the PCM device for a mode. Gives the low byte of the last deciding request's result, so 255 for one
// that failed as for a device that cannot be opened.
int32_t AudioSetDspRoute(int32_t mode);

// Sets the mixer's PCM volume. Gives 0, or 255 when the mixer cannot be opened.
int32_t AudioSetPcmVolume(int32_t volume);

// Sets the codec up for a path (1, 2, 3 or any other), or switches it off (`enable` 0). Gives 0; -9989 when
// the mixer cannot be opened, and no line is switched then.
int32_t AudioPathSetup(int32_t enable, int32_t path);
