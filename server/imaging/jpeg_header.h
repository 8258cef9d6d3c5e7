// The marker segments before and after a picture's entropy-coded data (ITU-T T.81, annex B, and JFIF 1.01).
#pragma once

#include "server/imaging/bit_writer.h"

void PutHeader(BitWriter* writer, int32_t width, int32_t height);
void PutTrailer(BitWriter* writer);
