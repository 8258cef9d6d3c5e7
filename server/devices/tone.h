// The tone generator: a thread of its own that plays until it is told to stop.
#pragma once

#include <cstdint>

// Starts a tone (`start` non-zero) of up to three frequencies in hertz (0 for none), or stops it (the other
// arguments are not used). Route flags: bit 1 without bit 0 plays over the second route and audio line A.
// Gives 0; -9991 when a tone plays already, when none plays, or when the thread cannot be created. Stopping
// waits for the second of sound that is being played.
int32_t ToneControl(int32_t f1, int32_t f2, int32_t f3, int32_t volume, int32_t route_flags, int32_t start);
