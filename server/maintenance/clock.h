// The real-time clock, through the Linux RTC driver. Years are full years, months run from 1 to 12.
#pragma once

#include <cstdint>

#include "protocol/statement.h"

// Reads the clock. Returns 0; -9991 if the driver is missing or refuses, and the time stays as it was.
int32_t GetRtcTime(protocol::Moment& time);

// Sets the clock; the driver checks the values. The system's own clock is not touched. Returns 0 or -9991.
int32_t SetRtcTime(const protocol::Moment& time);

// Sets the clock, if it can be read, and the system's own clock to 1 January 2000, 00:00:00. Returns 0,
// always. No command is bound to it.
int32_t ResetClock();
