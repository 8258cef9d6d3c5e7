// CRC-16/MODBUS: reflected polynomial 0xA001, initial value 0xFFFF, no final XOR; 0x4B37 for "123456789".
#pragma once

#include <cstdint>

// Returns the CRC of `length` bytes in the low half of the word, 0xFFFF for no bytes.
uint32_t Crc16(const uint8_t* data, uint32_t length);
