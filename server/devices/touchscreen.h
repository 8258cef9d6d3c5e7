// The touchscreen test: five crosses that a thread of its own erases as the tester touches them.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Stops the test (0), starts it after stopping a running one (1), reads its result (2); any other mode starts
// a test beside one that may be running, whose thread then nobody waits for. Gives 0, or -9991 when the
// thread cannot be created; for mode 2 a bit for each cross not yet touched (31 before the first run), or why
// the run could not start: -9989 framebuffer not opened, -9988 not mapped, -9889 touch device not opened.
int32_t TouchCalibControl(int32_t mode);
