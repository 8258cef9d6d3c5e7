// The memory card's test.
#pragma once

#include <cstdint>

// Reads the card's serial number from the kernel, writes a short file on the card and reads it back. The file
// stays on the card. Returns 0; -9989 if the kernel's file or the test file cannot be opened; -9990 if no
// serial number is listed or the file's content differs; -9995 if the number is 0 or not a number.
int32_t TestMemoryCard();
