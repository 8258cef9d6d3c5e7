// The test tool's seven functions. All give the status that the tool printed, or -9992 when it could not be
// started or printed none; a result that it did not print stays as it was.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

int32_t BtToolFunction1(int32_t a, int32_t b, int32_t c);

// Gives the six bytes of ResultA in the order printed; `address` is zeroed where they are missing.
int32_t BtToolFunction2(uint8_t* address);

int32_t BtToolFunction3(int32_t a, int32_t b, int32_t* result);

// Sends the first `length` bytes of a block (16 at most, compared unsigned) to a device address. Gives the
// count of result bytes (anything but 0 to 15 is taken as 16) and the bytes, BT_BLOCK_SIZE at most.
int32_t BtToolFunction4(const uint8_t* address, uint32_t length, const uint8_t* data, uint32_t* result_count,
                        uint8_t* result);

// Sends a device address and four characters, such as a PIN, unchecked: a zero ends them, and the shell sees
// them as they are. Gives BT_CODE_RESULT_SIZE bytes.
int32_t BtToolFunction5(const uint8_t* address, const uint8_t* characters, uint8_t* result);

int32_t BtToolFunction6(int32_t a, int32_t* result);

// As function 2, for `a`.
int32_t BtToolFunction7(int32_t a, uint8_t* address);
