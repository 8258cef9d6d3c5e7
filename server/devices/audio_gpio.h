// The two audio lines that the GPIO driver switches. Every routine gives 0, also when the driver is missing.
#pragma once

#include <cstdint>

int32_t AudioGpioLineAOn();
int32_t AudioGpioLineAOff();
int32_t AudioGpioLineBOn();
int32_t AudioGpioLineBOff();
