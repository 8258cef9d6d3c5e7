// The camera's sensor, through its Video4Linux 2 capture device in the early form of that interface. A frame
// is RGB565, rows from top to bottom without padding.
#pragma once

#include <cstdint>

// The self-test and the capture return 0; -9989 device not opened; -9992, -9892, -9792 and -9692 if reading
// the format, setting it or one of the two start controls fails; -9987 if the frame does not come whole.

// Makes the sensor send its two test patterns at 240 x 320 and checks every pixel. Also returns -9988 out of
// memory, -9592 pattern not selected, -9990 wrong pixel.
int32_t CameraSelfTest();

// Captures one frame into `buffer` of width x height x 2 bytes. Takes a second for the sensor to settle.
int32_t CameraCapture(uint32_t width, uint32_t height, void* buffer);

// Not supported: always returns -9994.
int32_t CameraQuery();
