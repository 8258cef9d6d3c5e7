// The keypad: the last key pressed, by polling the input event device.
#pragma once

#include <cstdint>

// Translates a raw key word (upper half the key, low 8 bits its state). Returns a known key's code, whose low
// byte is 0; 0xFF00 plus the state for an unknown key; 0 for 0.
uint32_t KeyTranslate(uint32_t raw);

// Waits half a second for a key and returns its code. If no key came, returns the last key's code with 1 as
// low byte (0 before the first key). Returns -9991 if the device cannot be opened.
int32_t KeypadPoll();
