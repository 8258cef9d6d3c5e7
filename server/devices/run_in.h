// The run-in: display, tones, motor and LEDs in turn, for ever.
#pragma once

#include <cstdint>

// Repeats the cycle without end; `seconds` is the length of each tone, and decides how often the other steps
// come.
[[noreturn]] void RunInCycle(int32_t seconds);
