// The vibration motor, the indicator LED and the receive line of the modem's serial port: /proc files that
// take decimal text, written through the shell. The driver checks the values. The shell's exit status is
// ignored, so every routine returns 0: a person watches the device itself.
#pragma once

#include <cstdint>

int32_t MotorSet(int32_t on);         // 0 off, any other value on
int32_t LedSetColor(int32_t color);   // the driver's colour number, signed
int32_t GsmUartRxSet(int32_t level);  // signed
