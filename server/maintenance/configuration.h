// The phone's own configuration in its file system: the factory reset and the sounds that it restores, the
// touchscreen's calibration file, and the version texts. Most of it is done by shell commands, whose status
// is ignored: a file that is already missing is no failure.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Removes the camera's test pictures, restores the sounds, clears the call meter and runs the settings' own
// reset and clear scripts. Returns 0, always.
int32_t FactoryReset();

constexpr int32_t TOUCH_SOUND_CLICK = 1;
constexpr int32_t TOUCH_SOUND_TONE = 2;

// Choose the sounds of the touchscreen (click, tone, or for any other value none), of the keys and of the
// charger (0 off). They return the status of the last "sync".
int32_t SetTouchSound(int32_t mode);
int32_t SetKeySound(int32_t on);
int32_t SetChargerSound(int32_t on);

// Writes the built-in calibration (`write` non-zero) or removes the file. Returns 0, or -9989 if the file
// cannot be created.
int32_t WriteCalibration(int32_t write);

// Reads the first word of each version file into its buffer of VERSION_LENGTH + 1 bytes. A null buffer is
// skipped. If a file is missing or empty, its buffer stays as it was. Returns 0, always.
int32_t ReadVersions(char* system_out, char* config_out, char* resource_out);
