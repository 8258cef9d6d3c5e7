// The touchscreen test: a thread shows five crosses and erases each one that the tester touches.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Stops the test (0), stops a running test and starts a new one (1), or reads the result (2). Any other mode
// starts a test without stopping a running one, whose thread is then never joined. Returns 0, or -9991 if the
// thread cannot be created. Mode 2 returns a bit for each cross not yet touched (31 before the first run), or
// why the run could not start: -9989 framebuffer not opened, -9988 not mapped, -9889 touch device not
// opened.
int32_t TouchCalibControl(int32_t mode);
