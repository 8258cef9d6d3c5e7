// The modem pass-through: a transparent relay between the host and the modem's data port.
#pragma once

#include <cstdint>

// Relays until told to leave. With `standalone` 0 the relay works on the open command channel until the host
// sends the leave frame in one piece. With 1 it takes the USB gadget over, relays until the GPIO driver's
// stop flag is set, unloads the gadget and buzzes for a second. Returns 0; -9985 modem port not opened; -9993
// host port not opened.
int32_t RunModemPassThrough(int32_t standalone);
