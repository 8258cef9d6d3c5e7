// The run-in: display, tones, motor and LEDs in turn, without end.
#pragma once

#include <cstdint>

// Repeats the cycle until the phone is switched off. `seconds` is the length of each tone and decides how
// often the other steps come. All results are ignored: a person watches the devices.
[[noreturn]] void RunInCycle(int32_t seconds);
