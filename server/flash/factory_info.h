// The factory information record: 128 bytes at the start of its partition, without CRC or backup. Only the
// host knows its contents. Every routine returns 0, or -9991 for every failure (partition missing, not
// opened, short transfer).
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Read one of the two fields (10 bytes at offset 0 or 21). On failure the buffer stays as it was.
int32_t ReadFactoryInfoFirstField(uint8_t* out);
int32_t ReadFactoryInfoSecondField(uint8_t* out);

// Reads the whole record straight into the buffer: a short read leaves its bytes there.
int32_t ReadFactoryInfo(uint8_t* out);

// Erases the partition and writes the record. A write that fails leaves the partition erased.
int32_t WriteFactoryInfo(const uint8_t* in);

// Writing a single field is not supported, on purpose: the host writes the whole record. Always returns
// -9994; the flash is not touched.
int32_t FactoryQueryUnsupported();
