// Production data in the flash partitions.
#include "protocol/result_codes.h"
#include "station/commands/rows.h"

namespace station {

namespace {

using Kind = AnswerField::Kind;

// Erasing and writing a partition of old NOR or NAND flash takes seconds.
constexpr std::chrono::milliseconds FLASH_WRITE{20'000};

const StatusRow NO_FACTORY_INFO = {FLASH_ERR,
                                   "the partition \"Factory Info\" is missing, not opened, or short to read"};

Command FactoryFieldRead(std::uint32_t code, std::string which, std::string verb) {
  return {
      .code = code,
      .name = "read " + which + " factory field",
      .action = "Reads the " + which + " 10-byte field of the factory information.",
      .request = {Ignored(4)},
      .answer = {Status(), {Kind::Block, 10, "field", "the field as it is stored"}},
      .answer_time = PROMPT,
      .statuses = {NO_FACTORY_INFO},
      .verbs = {{"factory-field " + verb, "read the " + which + " 10-byte field of the factory information"}},
  };
}

Command FactoryFieldWrite(std::uint32_t code, std::string which, std::string verb) {
  return {
      .code = code,
      .name = "write " + which + " factory field",
      .action = "Nothing: a single field cannot be written, only the whole factory information.",
      .request = {Data("field", 10, "the field, ten hexadecimal bytes")},
      .answer = {Status()},
      .answer_time = PROMPT,
      .statuses = {{NOT_SUPPORTED, "always: a single field cannot be written; use \"factory-info write\""}},
      .verbs = {{"factory-field " + verb,
                 "ask to write the " + which + " field, which the phone always refuses"}},
  };
}

Command FactoryInfoRead(std::uint32_t code, std::string name, std::vector<Verb> verbs) {
  return {
      .code = code,
      .name = std::move(name),
      .action = "Reads the factory information: the first 128 bytes of the partition \"Factory Info\".",
      .request = {Ignored(4)},
      .answer = {Status(), {Kind::Block, 128, "block", "the factory information"}},
      .answer_time = PROMPT,
      .statuses = {NO_FACTORY_INFO},
      .verbs = std::move(verbs),
  };
}

Command BluetoothAddressWrite(std::uint32_t code, std::string name, Verb verb) {
  return {
      .code = code,
      .name = std::move(name),
      .action =
          "Takes the Bluetooth chip's start-up script from its template, puts the device address into it and "
          "writes it to the partition \"Bluetooth Info\".",
      .request = {Address("address", "the Bluetooth device address, in the order in which it is stored"),
                  Ignored(12)},
      .answer = {Status()},
      .answer_time = FLASH_WRITE,
      .statuses = {{FLASH_ERR, "the partition \"Bluetooth Info\" is missing"},
                   {OPEN_FAILED, "the template or the partition could not be opened"},
                   {OUT_OF_RANGE, "the template is larger than 16384 bytes"},
                   {OUT_OF_MEMORY, "no memory for the template"},
                   {SHORT_READ, "the template was short to read"},
                   {CONTENT_MISMATCH, "the template holds no place for the address"},
                   {SHORT_WRITE, "the partition took only part of the script"}},
      .verbs = {std::move(verb)},
  };
}

Command PartitionWordSet() {
  return {
      .code = 0x04,
      .name = "set partition word",
      .action =
          "Puts the word into the partition information and writes both copies: the primary first if it is "
          "good, else the backup.",
      .request = {Number("word", "the word at offset 12 of the partition information")},
      .answer = {Status()},
      .answer_time = FLASH_WRITE,
      .statuses = {{FLASH_ERR,
                    "neither copy of the partition information can be read with a right checksum"}},
      .verbs = {{"partition-word", "set the word in the partition information and its backup"}},
  };
}

Command IdentityRead() {
  return {
      .code = 0x0B,
      .name = "read identity",
      .action =
          "Reads the 15-digit identity number from the one-time-programmable flash; a blank area reads as "
          "000000011234564.",
      .request = {Ignored(4)},
      .answer = {Status(), {Kind::Text, 15, "identity", "15 digits"}},
      .answer_time = PROMPT,
      .statuses = {{FLASH_ERR, "the partition \"OTP\" is missing"},
                   {OPEN_FAILED, "the partition \"OTP\" could not be opened"},
                   {SHORT_READ, "the partition \"OTP\" was short to read"}},
      .verbs = {{"identity read", "read the phone's 15-digit identity number"}},
  };
}

Command IdentityWrite() {
  return {
      .code = 0x0C,
      .name = "write identity",
      .action =
          "Programs the identity number into the one-time-programmable flash if that is blank. The same "
          "number "
          "again is a success; another one is refused.",
      .request = {Digits("identity", 15, "the 15-digit identity number")},
      .answer = {Status()},
      .answer_time = FLASH_WRITE,
      .statuses = {{FLASH_ERR, "the partition \"OTP\" is missing"},
                   {OPEN_FAILED, "the partition \"OTP\" could not be opened"},
                   {SHORT_READ, "the partition \"OTP\" was short to read"},
                   {CONTENT_MISMATCH, "another identity number has been programmed already"}},
      .verbs = {{"identity write", "program the identity number, which can be done only once"}},
  };
}

Command IdentityBlankCheck() {
  return {
      .code = 0x47,
      .name = "check identity blank",
      .action = "Checks that the first 8192 bytes of the one-time-programmable flash are blank.",
      .request = {Ignored(4)},
      .answer = {Status()},
      .answer_time = PROMPT,
      .statuses = {{CONTENT_MISMATCH, "the area is not blank: an identity number has been programmed"},
                   {FLASH_ERR, "the partition \"OTP\" is missing"},
                   {OPEN_FAILED, "the partition \"OTP\" could not be opened"},
                   {OUT_OF_MEMORY, "no memory for the check"},
                   {SHORT_READ, "the partition \"OTP\" was short to read"}},
      .verbs = {{"identity check-blank", "check that no identity number has been programmed yet"}},
  };
}

Command FactoryInfoWrite() {
  return {
      .code = 0x32,
      .name = "write factory information",
      .action =
          "Sleeps one second, then takes the block, erases the partition \"Factory Info\" and writes the "
          "block "
          "to its start.",
      .request = {Content("file", 128, "file with the 128 bytes of the factory information")},
      .answer = {Status()},
      .answer_time = FLASH_WRITE,
      .statuses = {{FLASH_ERR, "the partition \"Factory Info\" is missing, not opened, or took only part"}},
      .verbs = {{"factory-info write", "write the 128-byte factory information from a file"}},
  };
}

Command ModemImageSave() {
  return {
      .code = 0x33,
      .name = "save modem image",
      .action =
          "Copies the modem's file-system image, 80 KiB of physical memory, into the partition \"GSM FFS\".",
      .request = {Ignored(4)},
      .answer = {Status()},
      .answer_time = FLASH_WRITE,
      .statuses = {{FLASH_ERR, "the partition \"GSM FFS\" is missing"}},
      .verbs = {{"modem-image save", "copy the modem's file-system image into flash"}},
  };
}

Command ModemImageChunk() {
  return {
      .code = 0x34,
      .name = "read modem image",
      .action =
          "Hands out the next 1024 bytes of the partition \"GSM FFS\". Fewer than 1024 end the image, and "
          "the "
          "next command starts again at its beginning.",
      .request = {Ignored(4)},
      .answer = {{Kind::Count, 4, "count", "how many bytes are delivered, or a result code"},
                 {Kind::Block, 1024, "bytes", "the chunk"}},
      .answer_time = PROMPT,
      .statuses = {{FLASH_ERR, "the partition \"GSM FFS\" is missing"},
                   {OPEN_FAILED, "the partition \"GSM FFS\" could not be opened"},
                   {SHORT_READ, "the partition \"GSM FFS\" could not be read"}},
      .verbs = {{"modem-image chunk", "read the next 1024 bytes of the modem's file-system image"}},
  };
}

}  // namespace

std::vector<Command> FlashRows() {
  return {
      PartitionWordSet(),
      FactoryFieldRead(0x05, "first", "read-first"),
      FactoryFieldWrite(0x06, "first", "write-first"),
      FactoryFieldRead(0x08, "second", "read-second"),
      FactoryFieldWrite(0x09, "second", "write-second"),
      IdentityRead(),
      IdentityWrite(),
      BluetoothAddressWrite(
          0x0E, "write Bluetooth address",
          {"bluetooth-address write", "store the phone's Bluetooth device address in flash"}),
      FactoryInfoRead(0x11, "read factory information", {}),
      FactoryInfoRead(0x31, "read factory information (extended)",
                      {{"factory-info read-extended", "read the factory information by its extended code"}}),
      FactoryInfoWrite(),
      ModemImageSave(),
      ModemImageChunk(),
      BluetoothAddressWrite(
          0x37, "write Bluetooth address (extended)",
          {"bluetooth-address write-extended", "store the Bluetooth device address by its extended code"}),
      IdentityBlankCheck(),
  };
}

}  // namespace station
