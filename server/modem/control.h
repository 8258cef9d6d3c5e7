// The modem's control port, by private requests to its driver, and what the GPIO driver does for the modem:
// three lines and a state word.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Passes "0" or "1" to the modem's driver and saves the modem's file-system image on flash; both results are
// ignored. Returns 0; -9994 for any other text; -9989 if the control port cannot be opened.
int32_t ModemControl(const char* text);

// Reads the modem's six values. Returns 0; -9989 port not opened; -9992 request failed; -9991 wrong reply.
int32_t QueryModemValues(uint32_t* out);

// Reads only the second of the six values. Returns 0, or -9991 for every failure.
int32_t QueryModemValue(uint32_t* out);

// Reads the modem's line status byte. Returns 0; -9989 port not opened; -9991 wrong reply. On failure `out`
// stays as it was.
int32_t QueryModemByte(uint8_t* out);

// Returns 0 if the modem's state word is 1, -9984 if it is 0, -9992 for any other word and for a failed
// request; -9989 if the GPIO driver cannot be opened.
int32_t CheckModemState();

// Switches the modem's three lines, in this order, on or off (0). Returns 0 whatever the requests did, or
// -9989 if the GPIO driver cannot be opened.
int32_t SetModemLines(int32_t first, int32_t second, int32_t third);
