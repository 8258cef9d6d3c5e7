// The vibration motor, the indicator LED and the receive line of the modem's serial port: /proc files that
// take decimal text, written through the shell. Every routine gives 0; the driver judges the values, nobody
// the shell.
#pragma once

#include <cstdint>

int32_t MotorSet(int32_t on);         // 0 off, any other value on
int32_t LedSetColor(int32_t color);   // the driver's colour number, signed
int32_t GsmUartRxSet(int32_t level);  // signed
