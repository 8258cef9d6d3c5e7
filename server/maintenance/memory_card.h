// The memory card's test.
#pragma once

#include <cstdint>

// Reads the card's serial number from the kernel, writes a short file on the card and reads it back; the file
// is left there. Gives 0; -9989 when the kernel's file or the test file cannot be opened; -9990 when no
// serial number is listed or the file's content differs; -9995 when the number is 0 or none.
int32_t TestMemoryCard();
