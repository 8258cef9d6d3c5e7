// The one-time-programmable flash area: the phone's 15-digit identity number in packed decimal with its
// complement. It is accessed through the character device and never erased. Every routine returns -9991 if
// the partition is missing, -9989 if the device cannot be opened, and -9987 for a short read.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Reads the number as 15 ASCII digits without an end mark. A blank area reads as the built-in default
// identity. The complement is not checked, and half-bytes above 9 become the characters after '9', so that
// the station sees what the area really holds. Returns 0 or a code.
int32_t ReadOtpIdentity(uint8_t* out);

// Programs 15 ASCII digits, which are not checked, into a blank area. Returns 0 after the write, whose own
// result is ignored, or without a write if the area holds this number already; -9990 if it holds anything
// else.
int32_t WriteOtpIdentity(const uint8_t* digits);

// Returns 0 if the first 8192 bytes are blank, -9990 if not; -9988 if memory runs out.
int32_t CheckOtpBlank();
