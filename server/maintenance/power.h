// Switching the phone off.
#pragma once

// Waits a second, closes the command channel, tells the GPIO driver, runs the system's own power-off and ends
// the program with status 0.
[[noreturn]] void PowerOff();
