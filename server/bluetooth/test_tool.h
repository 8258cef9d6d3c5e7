// The Bluetooth test tool: a program of the phone that carries out seven functions and prints their results.
#pragma once

#include <cstdint>

#include "protocol/result_codes.h"
#include "protocol/selectors.h"

// The status if the tool cannot be started or prints no status.
constexpr int32_t BtToolFailure = REQUEST_FAILED;

// The seven functions return the status that the tool printed, or BtToolFailure. A result that the tool did
// not print stays as it was.

int32_t BtToolFunction1(int32_t a, int32_t b, int32_t c);

// Stores the six bytes of ResultA in the order printed, and 0 for a byte that is missing.
int32_t BtToolFunction2(uint8_t* address);

int32_t BtToolFunction3(int32_t a, int32_t b, int32_t* result);

// Sends the first `length` bytes of a block (at most 16, compared unsigned) to a device address. Stores the
// count of result bytes (any number but 0 to 15 is taken as 16) and the bytes, at most BT_BLOCK_SIZE.
int32_t BtToolFunction4(const uint8_t* address, uint32_t length, const uint8_t* data, uint32_t* result_count,
                        uint8_t* result);

// Sends a device address and four characters, such as a PIN. A zero ends them. They are not checked, so the
// shell takes them as they are: the host on the cable is trusted. Stores BT_CODE_RESULT_SIZE bytes.
int32_t BtToolFunction5(const uint8_t* address, const uint8_t* characters, uint8_t* result);

int32_t BtToolFunction6(int32_t a, int32_t* result);

// As function 2, for `a`.
int32_t BtToolFunction7(int32_t a, uint8_t* address);

// Holds a command line or the first 255 characters of the output, always ended by a zero.
constexpr uint32_t BT_TEXT_SIZE = 256;

// Runs a command line through the shell, waits for its end, and keeps the first 255 characters of its output
// in `output` (BT_TEXT_SIZE bytes, zeros after the text). Returns the place of the first "Status=", or null
// if there is none or the pipe cannot be opened.
const char* BtToolRun(const char* command, char* output);

// Writes two upper-case hexadecimal digits for each byte and an ending zero: `text` takes 2 * count + 1
// characters.
void HexEncodeUpper(const uint8_t* bytes, uint32_t count, char* text);

// Reads `count` bytes that were printed after `key` as pairs of hexadecimal digits with one character between
// pairs. The first `key` anywhere in the output counts. A pair that is missing or not hexadecimal is read as
// 0, half a pair as its digit. Without the key the bytes stay as they are.
void ReadHexBytes(const char* output, const char* key, uint8_t* bytes, uint32_t count);
