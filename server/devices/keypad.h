// The keypad: the last key pressed, by polling the input event device.
#pragma once

#include <cstdint>

// Translates a raw key word (upper half the key, low 8 bits its state). Gives a known key's code with 0 as
// low byte, 0xFF00 and the state for an unknown one, 0 for 0.
uint32_t KeyTranslate(uint32_t raw);

// Waits half a second for a key. Gives its code; without a new key the last one's with 1 as low byte (0
// before the first); -9991 when the device cannot be opened.
int32_t KeypadPoll();
