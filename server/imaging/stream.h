// The stream layer: an open file that takes blocks of bytes. A stream does not buffer: its users write large
// blocks.
#pragma once

#include <cstddef>

#include "server/imaging/imaging.h"

// Writes all of `size` bytes or returns MIMG_WRITE_FAILED.
int32_t MStreamWrite(MStream* stream, const uint8_t* bytes, size_t size);

// Waits until what was written has reached the storage. A file system that allocates late reports a full
// medium only now.
int32_t MStreamFlush(MStream* stream);
