// The phone's side of the USB cable and what keeps the phone awake beside it: shared by the server's start-up
// and by the modem pass-through, which takes the cable over.
#pragma once

#include <cstdint>

// Takes the USB network interface down and reloads the serial gadget's modules. Failures go unnoticed.
void ReloadUsbGadget();

// The descriptor that keeps the phone out of standby; negative when the file could not be opened.
extern int32_t StandbyHold;

// Opens the standby-prohibit file and gives its descriptor, negative on failure. Holding it open is the
// effect.
int32_t ProhibitStandby();

// Gives the hold up.
void AllowStandby(int32_t hold);
