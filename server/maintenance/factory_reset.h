// The factory reset of the user's settings, and the sound settings that it restores. All is done by the
// shell; no command's status is looked at.
#pragma once

#include <cstdint>

// Removes the camera's test pictures, restores the sounds, clears the call meter and runs the settings' own
// reset and clear scripts. Gives 0, always.
int32_t FactoryReset();

constexpr int32_t TOUCH_SOUND_CLICK = 1;
constexpr int32_t TOUCH_SOUND_TONE = 2;

// Choose the sounds of the touchscreen (click, tone, any other value none), the keys and the charger (0 off).
// Give the status of the last "sync".
int32_t SetTouchSound(int32_t mode);
int32_t SetKeySound(int32_t on);
int32_t SetChargerSound(int32_t on);
