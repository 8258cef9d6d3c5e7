// The partition information record: a CRC-checked flash record that is kept twice. Only one word of it is
// this server's; the rest is carried over as it is.
#pragma once

#include <cstdint>

// Reads the record (FLASH_RECORD_SIZE bytes) from the primary copy or, when that does not verify, from the
// backup. Gives 0, or -1 when neither verifies.
int32_t ReadPartitionInfo(uint8_t* buffer);

// Stamps the record's CRC and writes both copies: the primary first if it verifies, else the backup first.
// Always gives 0.
int32_t WritePartitionInfo(uint8_t* buffer);

// Sets the record's word and rewrites both copies. Gives 0, or -9991 with the flash untouched when neither
// copy verifies.
int32_t SetPartitionInfoWord(uint32_t word);
