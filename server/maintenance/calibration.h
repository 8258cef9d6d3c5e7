// The touchscreen's calibration file.
#pragma once

#include <cstdint>

// Writes the built-in calibration (`write` non-zero) or removes the file. Gives 0; -9989 when the file cannot
// be created.
int32_t WriteCalibration(int32_t write);
