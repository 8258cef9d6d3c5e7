// Questions to the modem's driver on its control port.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Reads the modem's six values. Gives 0; -9989 port not opened, -9992 request failed, -9991 wrong reply.
int32_t QueryModemValues(uint32_t* out);

// Reads the second of the six values alone. Gives 0; -9991 for every failure.
int32_t QueryModemValue(uint32_t* out);

// Reads the modem's line status byte. Gives 0; -9989 port not opened; -9991 wrong reply, and `out` stays as
// it was.
int32_t QueryModemByte(uint8_t* out);
