// Start-up of the server mode.
#pragma once

#include <cstdint>

// Prepares the phone (GPIO, USB gadget, standby, black screen) and opens the command channel. The argument is
// not used. Gives 0, or -9993 when the channel cannot be opened; the steps behind it are skipped then.
int32_t ServiceStartup(int32_t unused);
