// Runs the Bluetooth test tool and picks results out of what it prints.
#pragma once

#include <cstdint>

#include "protocol/result_codes.h"

#define BT_TOOL "/root/bt_cit_test"

// The status of a tool that could not be started or printed none.
constexpr int32_t BtToolFailure = REQUEST_FAILED;

// Holds a command line or the output's first 255 characters, always ended by a zero.
constexpr uint32_t BT_TEXT_SIZE = 256;

// Runs a command line through the shell, waits for its end, and keeps the first 255 characters of its output
// in `output` (BT_TEXT_SIZE bytes, zeros behind the text). Gives the place of the first "Status=", null when
// there is none or the pipe could not be opened.
const char* BtToolRun(const char* command, char* output);

// Writes two upper-case hexadecimal digits a byte and an ending zero: `text` takes 2 * count + 1 characters.
void HexEncodeUpper(const uint8_t* bytes, uint32_t count, char* text);

// Reads `count` bytes printed as pairs of hexadecimal digits with one character between them, behind the
// first `key` anywhere in the output. A pair that is missing or not hexadecimal gives 0, half a pair its
// digit; without the key the bytes stay as they are.
void ReadHexBytes(const char* output, const char* key, uint8_t* bytes, uint32_t count);
