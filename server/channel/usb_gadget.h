// The phone's side of the USB cable, and what keeps the phone awake meanwhile. The server's start-up and the
// modem pass-through, which takes the cable over, share it.
#pragma once

#include <cstdint>

// Takes the USB network interface down and reloads the serial gadget's modules. The statuses are ignored: a
// module may be absent already, and opening the port shows whether the gadget works. The network module is
// not loaded again on purpose: the cable belongs to the serial gadget.
void ReloadUsbGadget();

// The descriptor that keeps the phone out of standby. Negative if the file could not be opened.
extern int32_t StandbyHold;

// Opens the standby-prohibit file and returns its descriptor, negative on failure. Nothing is written: the
// phone stays awake while the file is open.
int32_t ProhibitStandby();

// Closes the descriptor, so that the phone may sleep again.
void AllowStandby(int32_t hold);
