// The partition information record: a CRC-checked flash record that is kept twice. The server changes only
// one word of it and keeps the rest as it is.
#pragma once

#include <cstdint>

// Reads the record (FLASH_RECORD_SIZE bytes) from the primary copy or, if its CRC is wrong, from the backup.
// Returns 0, or -1 if both are wrong.
int32_t ReadPartitionInfo(uint8_t* buffer);

// Stamps the record's CRC and writes both copies. If the primary's CRC is right, the primary is written
// first, otherwise the backup. Returns 0, always.
int32_t WritePartitionInfo(uint8_t* buffer);

// Sets the record's word and rewrites both copies. If the CRC of both copies is wrong, returns -9991 and does
// not touch the flash; otherwise returns 0.
int32_t SetPartitionInfoWord(uint32_t word);
