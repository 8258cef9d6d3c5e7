// Handlers that stand in both command tables, under two codes each.
#pragma once

#include <cstdint>

int32_t BluetoothInfoCommand();  // 0x0E, 0x37: writes the Bluetooth information record
int32_t FactoryInfoCommand();    // 0x11, 0x31: reads the factory information
