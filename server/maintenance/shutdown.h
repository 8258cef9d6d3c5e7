// The two commands that end the service: switching the phone off, and shutting its user interface down.
#pragma once

// Waits a second, closes the command channel, tells the GPIO driver, runs the system's own power-off and ends
// the program with status 0.
[[noreturn]] void PowerOff();

// Kills the launcher, switches the backlight off and never returns: the server does nothing more until the
// phone is started again.
[[noreturn]] void StopUserInterface();
