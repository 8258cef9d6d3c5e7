// Shutting the phone's user interface down.
#pragma once

// Kills the launcher, switches the backlight off and never returns: the server does nothing more until the
// phone is started again.
[[noreturn]] void StopUserInterface();
