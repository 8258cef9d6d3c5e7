// The Bluetooth chip's start-up script on flash: a template file with the phone's own device address in it.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Patches the address, as given, into the template and writes the result to its partition. Returns 0; -9991
// partition missing; -9989 template or device not opened; -9997 template over 16384 bytes; -9988 out of
// memory; -9987 short template read; -9990 no address record in the template; -9986 short write. The flash is
// erased only after everything before the write has succeeded.
int32_t WriteBluetoothInfo(const uint8_t* address);
