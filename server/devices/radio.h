// The FM radio, through Video4Linux (version 1).
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Switches the radio off (0), measures once and switches off (1), plays over audio line B (2), or plays
// without the line (any other mode). The frequency is in the driver's unit. Volume 0 mutes. `extra_enable`
// and `extra_flag` make a private request in mode 1. Both outputs are always set: first to 0, then to the
// frequency read back and the signal strength. Returns 0; -9989 if the radio cannot be opened; -9992, -9892,
// -9792, -9692 and -9592 if setting the frequency, setting the audio, the private request, reading the
// frequency or reading the tuner fails. After a failure the radio is off.
int32_t FmRadio(int32_t mode, uint32_t frequency, uint16_t volume, int32_t extra_enable, int32_t extra_flag,
                uint32_t* frequency_out, uint32_t* signal_out);
