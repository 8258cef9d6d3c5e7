// The real-time clock, through the Linux RTC driver. Years are full years, months run from 1 to 12.
#pragma once

#include <cstdint>

// Reads the clock. Returns 0. If the driver is missing or refuses, returns -9991 and the values stay as they
// were.
int32_t GetRtcTime(uint32_t* year, uint32_t* month, uint32_t* day, uint32_t* hour, uint32_t* minute,
                   uint32_t* second);

// Sets the clock. The driver checks the values. The system's own clock is not touched. Returns 0 or -9991.
int32_t SetRtcTime(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute, int32_t second);

// Sets the clock, if it can be read, and the system's own clock to 1 January 2000, 00:00:00. Returns 0,
// always. No command is bound to it.
int32_t ResetClock();
