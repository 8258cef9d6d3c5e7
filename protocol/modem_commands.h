// Commands on the modem's AT port, driver queries, lines and data port.
#pragma once

#include "protocol/statement.h"

namespace protocol {

struct ModemValues {
  uint32_t value[MODEM_VALUES];
  static constexpr Field FIELDS[] = {
      Number("word-0", "first information word"), Number("word-1", "second information word"),
      Number("word-2", "third information word"), Number("word-3", "fourth information word"),
      Number("word-4", "fifth information word"), Number("word-5", "sixth information word")};
};
static_assert(FieldsFill<ModemValues>(24));

constexpr uint32_t READ_MODEM_VALUES = 0x23;
template <>
struct Statement<READ_MODEM_VALUES> : Answered<Ignored, ModemValues> {
  static constexpr char name[] = "read modem information";
  static constexpr char action[] = "Asks the modem driver for its six information words.";
  static constexpr StatusMeaning statuses[] = {
      {OPEN_FAILED, "the modem's control port could not be opened"},
      {REQUEST_FAILED, "the modem driver refused the query"},
      {GENERAL_FAILURE, "the modem driver's reply is of another kind"}};
};

constexpr uint32_t CHECK_SIM = 0x25;
template <>
struct Statement<CHECK_SIM> : Answered<Ignored> {
  static constexpr char name[] = "check SIM";
  static constexpr char action[] =
      "Switches verbose errors on with \"at+cmee=1\" and asks for the SIM's state with \"at+cpin?\" on the "
      "modem's AT "
      "port. Each may take ten seconds.";
  static constexpr StatusMeaning statuses[] = {
      {OPEN_FAILED, "the modem's AT port could not be opened"},
      {GENERAL_FAILURE, "the modem does not answer"},
      {CONTENT_MISMATCH,
       "the modem answered \"at+cmee=1\" without \"OK\", or its answer to \"at+cpin?\" is empty"},
      {SIM_NOT_READY, "the modem answered \"at+cpin?\" without \"OK\": no SIM, or not ready"}};
};

struct ModemValue {
  uint32_t value;
  static constexpr Field FIELDS[] = {Number("word", "second information word")};
};
static_assert(FieldsFill<ModemValue>(4));

constexpr uint32_t READ_MODEM_VALUE = 0x30;
template <>
struct Statement<READ_MODEM_VALUE> : Answered<Ignored, ModemValue> {
  static constexpr char name[] = "read modem status word";
  static constexpr char action[] =
      "Asks the modem driver for its information words and answers the second of them.";
  static constexpr StatusMeaning statuses[] = {
      {GENERAL_FAILURE, "the modem's control port could not be opened, or returned no good reply"}};
};

struct AtRequest {
  char command[AT_TEXT_SIZE];  // ended by a zero, or full
  int32_t timeout_ms;
  static constexpr Field FIELDS[] = {
      {Form::Text, sizeof command, "command", "the AT command, at most 32 bytes with its line ending"},
      Number("timeout", "how long the modem may take", {0, 3'600'000, "ms"})};
};
static_assert(FieldsFill<AtRequest>(36));

struct AtReply {
  uint8_t reply[AT_TEXT_SIZE];
  static constexpr Field FIELDS[] = {
      {Form::Text, sizeof reply, "reply", "the first 32 bytes of the modem's reply"}};
};
static_assert(FieldsFill<AtReply>(32));

constexpr uint32_t EXCHANGE_AT = 0x3B;
template <>
struct Statement<EXCHANGE_AT> : Answered<AtRequest, AtReply> {
  static constexpr char name[] = "AT command";
  static constexpr char action[] =
      "Wakes the modem with \"at\" (up to three seconds), sends the text as it is and waits for \"OK\" or "
      "\"ERROR\". "
      "The wait is counted in rounds: (timeout + 999) / 1000, in signed 32-bit arithmetic that wraps. A "
      "round ends "
      "when something comes, or after one second; a piece of the reply without \"OK\" or \"ERROR\" counts as "
      "two "
      "rounds. With 0 rounds (a time-out of 0, or of -1998 to -1) there is no wait. With a negative number, "
      "also from "
      "a time-out above 2147482648, there is one round. The answer holds the reply's first 32 bytes.";
  static constexpr StatusMeaning statuses[] = {
      {GENERAL_FAILURE, "the modem's AT port could not be opened, or no \"OK\" or \"ERROR\" came"}};
};

constexpr uint32_t PASS_THROUGH = 0x3D;
template <>
struct Statement<PASS_THROUGH> : AnsweredFirst<Ignored> {
  static constexpr char name[] = "modem pass-through";
  static constexpr char action[] =
      "Answers, then relays bytes between the host and the modem's data port until the host sends the "
      "20-byte leave "
      "frame in one piece.";
};

constexpr uint32_t CHECK_MODEM_STATE = 0x3E;
template <>
struct Statement<CHECK_MODEM_STATE> : Answered<Ignored> {
  static constexpr char name[] = "check modem state";
  static constexpr char action[] = "Reads the modem state word from the GPIO driver; 1 is good.";
  static constexpr StatusMeaning statuses[] = {
      {MODEM_STATE_ZERO, "the modem state word is 0"},
      {REQUEST_FAILED, "the modem state word could not be read, or is neither 0 nor 1"},
      {OPEN_FAILED, "the GPIO device could not be opened"}};
};

struct ModemLinesRequest {
  int32_t first, second, third;
  static constexpr Field FIELDS[] = {OneOf("first", "first line; 0 is off", ON_OFF, ZERO_OR_ONE),
                                     OneOf("second", "second line; 0 is off", ON_OFF, ZERO_OR_ONE),
                                     OneOf("third", "third line; 0 is off", ON_OFF, ZERO_OR_ONE)};
};
static_assert(FieldsFill<ModemLinesRequest>(12));

constexpr uint32_t SET_MODEM_LINES = 0x3F;
template <>
struct Statement<SET_MODEM_LINES> : Answered<ModemLinesRequest> {
  static constexpr char name[] = "set modem lines";
  static constexpr char action[] = "Switches the three modem lines on or off, in order.";
  static constexpr StatusMeaning statuses[] = {{OPEN_FAILED, "the GPIO device could not be opened"}};
};

struct ModemControlRequest {
  int32_t value;
  static constexpr Field FIELDS[] = {OneOf("value", "any number but 0 acts as 1", ON_OFF, ZERO_OR_ONE)};
};
static_assert(FieldsFill<ModemControlRequest>(4));

constexpr uint32_t CONTROL_MODEM = 0x46;
template <>
struct Statement<CONTROL_MODEM> : Answered<ModemControlRequest> {
  static constexpr char name[] = "modem control";
  static constexpr char action[] =
      "Sends the modem driver its control request with 0 or 1, then saves the modem's file-system image into "
      "the "
      "partition \"GSM FFS\".";
  static constexpr StatusMeaning statuses[] = {{OPEN_FAILED, "the modem's control port could not be opened"}};
};

struct ModemLine {
  uint32_t line;
  static constexpr Field FIELDS[] = {Number("line", "the line status byte", {0, 255})};
};
static_assert(FieldsFill<ModemLine>(4));

constexpr uint32_t READ_MODEM_LINE = 0x48;
template <>
struct Statement<READ_MODEM_LINE> : Answered<Ignored, ModemLine> {
  static constexpr char name[] = "read modem line status";
  static constexpr char action[] = "Asks the modem driver for its line status byte.";
  static constexpr StatusMeaning statuses[] = {
      {OPEN_FAILED, "the modem's control port could not be opened"},
      {GENERAL_FAILURE, "the modem driver's reply is of another kind"}};
};

}  // namespace protocol
