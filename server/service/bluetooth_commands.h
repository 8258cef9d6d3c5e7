// The work of the commands that the Bluetooth test tool carries out, and their records on the wire.
#pragma once

#include "server/bluetooth/test_tool.h"
#include "server/service/command.h"

// For the requests that carry more than a few words.
constexpr int32_t LONG_TIMEOUT_MS = 2000;

using BluetoothAddress = Bytes<BT_ADDRESS_SIZE>;

struct BlockRequest {
  uint8_t address[BT_ADDRESS_SIZE];
  uint8_t length[4];  // a little-endian word, not aligned
  uint8_t data[BT_BLOCK_SIZE];
};
static_assert(sizeof(BlockRequest) == 26);

struct BlockResult {
  uint32_t count;
  uint8_t data[BT_BLOCK_SIZE];
};
static_assert(sizeof(BlockResult) == 20);

struct CodeRequest {
  uint8_t address[BT_ADDRESS_SIZE];
  uint8_t characters[BT_CODE_SIZE];
};
static_assert(sizeof(CodeRequest) == 10);

struct CodeResult {
  uint8_t data[BT_CODE_RESULT_SIZE];
  uint8_t end_mark;  // 0xFF in every answer
};
static_assert(sizeof(CodeResult) == 24);

// Four bytes longer than the answer of function 2, which carries the same: hosts expect both lengths.
struct LongAddress {
  uint8_t address[BT_ADDRESS_SIZE];
  uint8_t unused[4];
};
static_assert(sizeof(LongAddress) == 10);

int32_t RunToolFunction1(const Words<3>& request, NoData&);
int32_t RunToolFunction2(const Ignored&, BluetoothAddress& address);
int32_t RunToolFunction3(const Words<3>& request, Words<1>& result);
int32_t RunToolFunction4(const BlockRequest& request, BlockResult& result);
int32_t RunToolFunction5(const CodeRequest& request, CodeResult& result);
int32_t RunToolFunction6(const Words<1>& request, Words<1>& result);
int32_t RunToolFunction7(const Words<1>& request, LongAddress& result);
