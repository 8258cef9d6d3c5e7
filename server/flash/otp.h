// The one-time-programmable flash area: the phone's 15-digit identity number in packed decimal with its
// complement. Accessed through the character device and never erased. All give -9991 for a missing partition,
// -9989 for a device that cannot be opened, -9987 for a short read.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Reads the number as 15 ASCII digits without an end mark; a blank area gives the built-in default identity.
// The complement is not looked at, and half-bytes above 9 come out as the characters behind '9'. Gives 0 or a
// code.
int32_t ReadOtpIdentity(uint8_t* out);

// Programs 15 ASCII digits, which are not checked, into a blank area. Gives 0 when written (the write's own
// result is not looked at) or when the area holds this number already; -9990 when it holds anything else.
int32_t WriteOtpIdentity(const uint8_t* digits);

// Gives 0 when the first 8192 bytes are blank, -9990 when not; -9988 when out of memory.
int32_t CheckOtpBlank();
