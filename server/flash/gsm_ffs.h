// The modem's file-system image: copied from the modem's memory into its partition, and read back in chunks.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Reads the next chunk of the partition into `out`. Gives the number of bytes (fewer than 1024 at the end,
// and the next call starts again from the beginning); -9991 partition missing, -9989 not opened, -9987 read
// failed.
int32_t ReadGsmFfsChunk(uint8_t* out);

// Erases the partition and copies the image into it. Gives 0 whatever the copy did; -9991 partition missing.
int32_t SaveGsmFfsImage();
