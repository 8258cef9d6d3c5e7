// The modem's control request, its state word and the three lines that the GPIO driver switches for it.
#pragma once

#include <cstdint>

// Passes "0" or "1" to the modem's driver and saves the modem's file-system image on flash; neither's result
// is looked at. Gives 0; -9994 for any other text; -9989 when the control port cannot be opened.
int32_t ModemControl(const char* text);

// Gives 0 when the modem's state word is 1, -9984 when it is 0, -9992 for anything else and for a failed
// request; -9989 when the GPIO driver cannot be opened.
int32_t CheckModemState();

// Switches the modem's three lines, in this order, on or off (0). Gives 0; -9989 when the GPIO driver cannot
// be opened.
int32_t SetModemLines(int32_t first, int32_t second, int32_t third);
