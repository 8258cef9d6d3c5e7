// Commands on the production data in the flash partitions.
#pragma once

#include "protocol/statement.h"

namespace protocol {

struct PartitionWordRequest {
  uint32_t word;
  static constexpr Field FIELDS[] = {Number("word", "the word at offset 12 of the partition information")};
};
static_assert(FieldsFill<PartitionWordRequest>(4));

constexpr uint32_t SET_PARTITION_WORD = 0x04;
template <>
struct Statement<SET_PARTITION_WORD> : Answered<PartitionWordRequest> {
  static constexpr char name[] = "set partition word";
  static constexpr char action[] =
      "Puts the word into the partition information and writes both copies: the primary first if it is good, "
      "otherwise the backup first.";
  static constexpr StatusMeaning statuses[] = {
      {FLASH_ERR, "neither copy of the partition information can be read with a right checksum"}};
};

// One of the two fields of the factory information that have commands of their own.
struct FactoryField {
  uint8_t field[FACTORY_FIELD_SIZE];
  static constexpr Field FIELDS[] = {{Form::Block, sizeof field, "field", "the field as it is stored"}};
};
static_assert(FieldsFill<FactoryField>(10));

struct FactoryInfo {
  uint8_t block[FACTORY_INFO_SIZE];
  static constexpr Field FIELDS[] = {{Form::Block, sizeof block, "block", "the factory information"}};
};
static_assert(FieldsFill<FactoryInfo>(128));

struct FactoryFieldRead : Answered<Ignored, FactoryField> {
  static constexpr StatusMeaning statuses[] = {
      {FLASH_ERR, "the partition \"Factory Info\" is missing, not opened, or short to read"}};
};

struct FactoryFieldWrite : Answered<FactoryField> {
  static constexpr char action[] =
      "Does nothing: a single field cannot be written, only the whole factory information.";
  static constexpr StatusMeaning statuses[] = {
      {NOT_SUPPORTED, "always: a single field cannot be written; write the whole factory information"}};
};

struct FactoryInfoRead : Answered<Ignored, FactoryInfo> {
  static constexpr char action[] =
      "Reads the factory information: the first 128 bytes of the partition \"Factory Info\".";
  static constexpr StatusMeaning statuses[] = {
      {FLASH_ERR, "the partition \"Factory Info\" is missing, not opened, or short to read"}};
};

constexpr uint32_t READ_FIRST_FIELD = 0x05;
template <>
struct Statement<READ_FIRST_FIELD> : FactoryFieldRead {
  static constexpr char name[] = "read first factory field";
  static constexpr char action[] = "Reads the first 10-byte field of the factory information.";
};

constexpr uint32_t WRITE_FIRST_FIELD = 0x06;
template <>
struct Statement<WRITE_FIRST_FIELD> : FactoryFieldWrite {
  static constexpr char name[] = "write first factory field";
};

constexpr uint32_t READ_SECOND_FIELD = 0x08;
template <>
struct Statement<READ_SECOND_FIELD> : FactoryFieldRead {
  static constexpr char name[] = "read second factory field";
  static constexpr char action[] = "Reads the second 10-byte field of the factory information.";
};

constexpr uint32_t WRITE_SECOND_FIELD = 0x09;
template <>
struct Statement<WRITE_SECOND_FIELD> : FactoryFieldWrite {
  static constexpr char name[] = "write second factory field";
};

constexpr uint32_t READ_FACTORY_INFO = 0x11;
template <>
struct Statement<READ_FACTORY_INFO> : FactoryInfoRead {
  static constexpr char name[] = "read factory information";
};

constexpr uint32_t READ_FACTORY_INFO_EXTENDED = 0x31;
template <>
struct Statement<READ_FACTORY_INFO_EXTENDED> : FactoryInfoRead {
  static constexpr char name[] = "read factory information (extended)";
};

constexpr uint32_t WRITE_FACTORY_INFO = 0x32;
template <>
struct Statement<WRITE_FACTORY_INFO> : Answered<FactoryInfo> {
  static constexpr char name[] = "write factory information";
  static constexpr char action[] =
      "Sleeps one second, then takes the block, erases the partition \"Factory Info\" and writes the block "
      "to its "
      "start.";
  static constexpr uint32_t seconds_before_request = 1;
  static constexpr StatusMeaning statuses[] = {
      {FLASH_ERR, "the partition \"Factory Info\" is missing, not opened, or took only part"}};
};

// The phone's identity number, without an end mark.
struct Identity {
  uint8_t digits[IDENTITY_DIGITS];
  static constexpr Field FIELDS[] = {
      {Form::Digits, sizeof digits, "identity", "the 15-digit identity number"}};
};
static_assert(FieldsFill<Identity>(15));

constexpr uint32_t READ_IDENTITY = 0x0B;
template <>
struct Statement<READ_IDENTITY> : Answered<Ignored, Identity> {
  static constexpr char name[] = "read identity";
  static constexpr char action[] =
      "Reads the 15-digit identity number from the one-time-programmable flash; a blank area reads as "
      "000000011234564.";
  static constexpr StatusMeaning statuses[] = {{FLASH_ERR, "the partition \"OTP\" is missing"},
                                               {OPEN_FAILED, "the partition \"OTP\" could not be opened"},
                                               {SHORT_READ, "the partition \"OTP\" was short to read"}};
};

constexpr uint32_t WRITE_IDENTITY = 0x0C;
template <>
struct Statement<WRITE_IDENTITY> : Answered<Identity> {
  static constexpr char name[] = "write identity";
  static constexpr char action[] =
      "Programs the identity number into the one-time-programmable flash if that is blank. The same number "
      "again is "
      "a success; another one is refused.";
  static constexpr StatusMeaning statuses[] = {
      {FLASH_ERR, "the partition \"OTP\" is missing"},
      {OPEN_FAILED, "the partition \"OTP\" could not be opened"},
      {SHORT_READ, "the partition \"OTP\" was short to read"},
      {CONTENT_MISMATCH, "another identity number has been programmed already"}};
};

constexpr uint32_t CHECK_IDENTITY_BLANK = 0x47;
template <>
struct Statement<CHECK_IDENTITY_BLANK> : Answered<Ignored> {
  static constexpr char name[] = "check identity blank";
  static constexpr char action[] =
      "Checks that the first 8192 bytes of the one-time-programmable flash are blank.";
  static constexpr StatusMeaning statuses[] = {
      {CONTENT_MISMATCH, "the area is not blank: an identity number has been programmed"},
      {FLASH_ERR, "the partition \"OTP\" is missing"},
      {OPEN_FAILED, "the partition \"OTP\" could not be opened"},
      {OUT_OF_MEMORY, "no memory for the check"},
      {SHORT_READ, "the partition \"OTP\" was short to read"}};
};

struct BluetoothInfoRequest {
  uint8_t address[BLUETOOTH_ADDRESS_SIZE];
  uint8_t unused[12];
  static constexpr Field FIELDS[] = {{Form::Address, sizeof address, "address",
                                      "the Bluetooth device address, in the order in which it is stored"},
                                     Unused(sizeof unused)};
};
static_assert(FieldsFill<BluetoothInfoRequest>(18));

struct BluetoothInfoWrite : Answered<BluetoothInfoRequest> {
  static constexpr char action[] =
      "Takes the Bluetooth chip's start-up script from its template, puts the device address into it and "
      "writes it "
      "to the partition \"Bluetooth Info\".";
  static constexpr StatusMeaning statuses[] = {
      {FLASH_ERR, "the partition \"Bluetooth Info\" is missing"},
      {OPEN_FAILED, "the template or the partition could not be opened"},
      {OUT_OF_RANGE, "the template is larger than 16384 bytes"},
      {OUT_OF_MEMORY, "no memory for the template"},
      {SHORT_READ, "the template was short to read"},
      {CONTENT_MISMATCH, "the template holds no place for the address"},
      {SHORT_WRITE, "the partition took only part of the script"}};
};

constexpr uint32_t WRITE_BLUETOOTH_ADDRESS = 0x0E;
template <>
struct Statement<WRITE_BLUETOOTH_ADDRESS> : BluetoothInfoWrite {
  static constexpr char name[] = "write Bluetooth address";
};

constexpr uint32_t WRITE_BLUETOOTH_ADDRESS_EXTENDED = 0x37;
template <>
struct Statement<WRITE_BLUETOOTH_ADDRESS_EXTENDED> : BluetoothInfoWrite {
  static constexpr char name[] = "write Bluetooth address (extended)";
};

constexpr uint32_t SAVE_MODEM_IMAGE = 0x33;
template <>
struct Statement<SAVE_MODEM_IMAGE> : Answered<Ignored> {
  static constexpr char name[] = "save modem image";
  static constexpr char action[] =
      "Copies the modem's file-system image, 80 KiB of physical memory, into the partition \"GSM FFS\".";
  static constexpr StatusMeaning statuses[] = {{FLASH_ERR, "the partition \"GSM FFS\" is missing"}};
};

// A command that hands something out in pieces: the first word counts the bytes of the chunk that hold
// something.
constexpr Field CHUNK_COUNT = {Form::Count, 4, "count", "how many bytes are delivered, or a result code"};

struct ModemImageChunk {
  uint8_t bytes[GSM_FFS_CHUNK_SIZE];
  static constexpr Field FIELDS[] = {{Form::Block, sizeof bytes, "bytes", "the chunk"}};
};
static_assert(FieldsFill<ModemImageChunk>(1024));

constexpr uint32_t READ_MODEM_IMAGE = 0x34;
template <>
struct Statement<READ_MODEM_IMAGE> : Answered<Ignored, ModemImageChunk> {
  static constexpr char name[] = "read modem image";
  static constexpr char action[] =
      "Hands out the next 1024 bytes of the partition \"GSM FFS\". Fewer than 1024 end the image, and the "
      "next "
      "command starts again at its beginning.";
  static constexpr Field first_word = CHUNK_COUNT;
  static constexpr StatusMeaning statuses[] = {{FLASH_ERR, "the partition \"GSM FFS\" is missing"},
                                               {OPEN_FAILED, "the partition \"GSM FFS\" could not be opened"},
                                               {SHORT_READ, "the partition \"GSM FFS\" could not be read"}};
};

}  // namespace protocol
