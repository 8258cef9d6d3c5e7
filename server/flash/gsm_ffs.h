// The modem's file-system image: copied from the modem's memory into its partition, and read back in chunks.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Reads the next chunk of the partition into `out`. Returns the number of bytes. At the end this is fewer
// than 1024, and the next call starts again from the beginning. Returns -9991 partition missing, -9989 not
// opened, -9987 read failed.
int32_t ReadGsmFfsChunk(uint8_t* out);

// Erases the partition and copies the image into it. Returns 0 whatever the copy did (the host reads the
// partition back to check it), or -9991 if the partition is missing.
int32_t SaveGsmFfsImage();
