// The tone generator: a thread that plays until it is told to stop.
#pragma once

#include <cstdint>

// Starts a tone (`start` non-zero) of up to three frequencies in hertz (0 for none), or stops it (the other
// arguments are not used). Route flags: bit 1 without bit 0 plays over the second route and audio line A.
// Returns 0, or -9991 if a start finds a tone playing, a stop finds none, or the thread cannot be created.
// Stopping waits for the second of sound that is being played.
int32_t ToneControl(int32_t f1, int32_t f2, int32_t f3, int32_t volume, int32_t route_flags, int32_t start);
