// The factory information record: 128 bytes at the start of its partition, without CRC or backup. Its
// contents are the host's business. All failures (partition missing, not opened, short transfer) give -9991.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Read one of the two fields (10 bytes at offset 0 or 21); on failure the buffer stays as it was.
int32_t ReadFactoryInfoFirstField(uint8_t* out);
int32_t ReadFactoryInfoSecondField(uint8_t* out);

// Reads the whole record straight into the buffer: a short read leaves its bytes there.
int32_t ReadFactoryInfo(uint8_t* out);

// Erases the partition and writes the record. A write that fails leaves the partition erased.
int32_t WriteFactoryInfo(const uint8_t* in);

// Writing a single field is not supported, on purpose: always -9994, and the flash is not touched.
int32_t FactoryQueryUnsupported();
