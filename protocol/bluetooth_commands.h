// The seven functions of the phone's Bluetooth test tool. What a function does inside the Bluetooth stack is
// the tool's business; the names say what is sent and what comes back.
#pragma once

#include "protocol/statement.h"

namespace protocol {

template <typename RequestRecord, typename DataRecord = NoData>
struct ToolFunction : Answered<RequestRecord, DataRecord> {
  static constexpr Field first_word = {Form::Status, 4, "status",
                                       "the number that the tool printed, or a result code"};
  static constexpr StatusMeaning statuses[] = {
      {REQUEST_FAILED, "the Bluetooth test tool could not be run or printed no status"}};
};

struct BtNumber {
  int32_t a;
  static constexpr Field FIELDS[] = {Number("a", "the number")};
};
static_assert(FieldsFill<BtNumber>(4));

struct BtTwoNumbers {
  int32_t a, b;
  int32_t unused;
  static constexpr Field FIELDS[] = {Number("a", "first number"), Number("b", "second number"), Unused(4)};
};
static_assert(FieldsFill<BtTwoNumbers>(12));

struct BtThreeNumbers {
  int32_t a, b, c;
  static constexpr Field FIELDS[] = {Number("a", "first number"), Number("b", "second number"),
                                     Number("c", "third number")};
};
static_assert(FieldsFill<BtThreeNumbers>(12));

struct BtResult {
  int32_t result;
  static constexpr Field FIELDS[] = {{Form::Integer, 4, "result", "the tool's number"}};
};
static_assert(FieldsFill<BtResult>(4));

struct BtAddress {
  uint8_t address[BT_ADDRESS_SIZE];
  static constexpr Field FIELDS[] = {{Form::Address, sizeof address, "address", "the chip's device address"}};
};
static_assert(FieldsFill<BtAddress>(6));

struct BtBlockRequest {
  uint8_t address[BT_ADDRESS_SIZE];
  uint8_t length[4];  // a little-endian word, not aligned
  uint8_t data[BT_BLOCK_SIZE];
  static constexpr Field FIELDS[] = {
      {Form::Address, sizeof address, "address", "address of the other device"},
      {Form::Length,
       sizeof length,
       "length",
       "number of data bytes; the phone takes more than 16 as 16",
       {},
       false,
       {0, BT_BLOCK_SIZE, "bytes"}},
      {Form::Block, sizeof data, "data", "up to 16 bytes for the other device"}};
};
static_assert(FieldsFill<BtBlockRequest>(26));

struct BtBlock {
  uint32_t count;
  uint8_t data[BT_BLOCK_SIZE];
  static constexpr Field FIELDS[] = {{Form::Length, 4, "count", "number of result bytes, at most 16"},
                                     {Form::Block, sizeof data, "data", "the result bytes"}};
};
static_assert(FieldsFill<BtBlock>(20));

struct BtCodeRequest {
  uint8_t address[BT_ADDRESS_SIZE];
  uint8_t characters[BT_CODE_SIZE];
  static constexpr Field FIELDS[] = {
      {Form::Address, sizeof address, "address", "address of the other device"},
      {Form::Text, sizeof characters, "code", "up to four characters, such as a PIN"}};
};
static_assert(FieldsFill<BtCodeRequest>(10));

struct BtCodeResult {
  uint8_t data[BT_CODE_RESULT_SIZE];
  uint8_t end_mark;
  static constexpr Field FIELDS[] = {{Form::Block, sizeof data, "data", "23 result bytes"},
                                     {Form::Constant, 1, "", "always 0xFF"}};
};
static_assert(FieldsFill<BtCodeResult>(24));

// Four bytes longer than the answer of function 2, which carries the same: hosts expect both lengths.
struct BtLongAddress {
  uint8_t address[BT_ADDRESS_SIZE];
  uint8_t unused[4];
  static constexpr Field FIELDS[] = {{Form::Address, sizeof address, "address", "a device address"},
                                     Unused(sizeof unused, "zero")};
};
static_assert(FieldsFill<BtLongAddress>(10));

constexpr uint32_t BT_FUNCTION_1 = 0x35;
template <>
struct Statement<BT_FUNCTION_1> : ToolFunction<BtThreeNumbers> {
  static constexpr char name[] = "Bluetooth three numbers";
  static constexpr char action[] = "Runs function 1 of the Bluetooth test tool and waits for its end.";
};

constexpr uint32_t BT_FUNCTION_2 = 0x07;
template <>
struct Statement<BT_FUNCTION_2> : ToolFunction<Ignored, BtAddress> {
  static constexpr char name[] = "Bluetooth address";
  static constexpr char action[] = "Runs function 2 of the Bluetooth test tool and waits for its end.";
};

constexpr uint32_t BT_FUNCTION_3 = 0x36;
template <>
struct Statement<BT_FUNCTION_3> : ToolFunction<BtTwoNumbers, BtResult> {
  static constexpr char name[] = "Bluetooth number for two numbers";
  static constexpr char action[] = "Runs function 3 of the Bluetooth test tool and waits for its end.";
};

constexpr uint32_t BT_FUNCTION_4 = 0x42;
template <>
struct Statement<BT_FUNCTION_4> : ToolFunction<BtBlockRequest, BtBlock> {
  static constexpr char name[] = "Bluetooth data for data";
  static constexpr char action[] = "Runs function 4 of the Bluetooth test tool and waits for its end.";
  static constexpr int32_t request_timeout_ms = 2000;
};

constexpr uint32_t BT_FUNCTION_5 = 0x43;
template <>
struct Statement<BT_FUNCTION_5> : ToolFunction<BtCodeRequest, BtCodeResult> {
  static constexpr char name[] = "Bluetooth bytes for code";
  static constexpr char action[] =
      "Runs function 5 of the Bluetooth test tool and waits for its end. The four characters go into the "
      "tool's "
      "command line as they are.";
  static constexpr int32_t request_timeout_ms = 2000;
};

constexpr uint32_t BT_FUNCTION_6 = 0x44;
template <>
struct Statement<BT_FUNCTION_6> : ToolFunction<BtNumber, BtResult> {
  static constexpr char name[] = "Bluetooth number for number";
  static constexpr char action[] = "Runs function 6 of the Bluetooth test tool and waits for its end.";
};

constexpr uint32_t BT_FUNCTION_7 = 0x49;
template <>
struct Statement<BT_FUNCTION_7> : ToolFunction<BtNumber, BtLongAddress> {
  static constexpr char name[] = "Bluetooth address for number";
  static constexpr char action[] = "Runs function 7 of the Bluetooth test tool and waits for its end.";
};

}  // namespace protocol
