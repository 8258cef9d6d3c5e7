// Commands on settings, versions, clock, power and memory card.
#pragma once

#include "protocol/statement.h"

namespace protocol {

constexpr uint32_t POWER_OFF = 0x02;
template <>
struct Statement<POWER_OFF> : NeverAnswered<Ignored> {
  static constexpr char name[] = "power off";
  static constexpr char action[] =
      "Waits a second, closes the serial port and powers the phone off. Never answered.";
};

constexpr uint32_t FACTORY_RESET = 0x03;
template <>
struct Statement<FACTORY_RESET> : Answered<Ignored> {
  static constexpr char name[] = "factory reset";
  static constexpr char action[] =
      "Removes the camera test pictures, restores the default sounds, zeroes the call meter and runs the "
      "set-up "
      "reset and clear scripts.";
};

struct VersionText {
  char text[VERSION_LENGTH];
  static constexpr Field FIELDS[] = {
      {Form::Text, sizeof text, "version", "the word; empty if the file cannot be read"}};
};
static_assert(FieldsFill<VersionText>(128));

constexpr uint32_t READ_SYSTEM_VERSION = 0x0A;
template <>
struct Statement<READ_SYSTEM_VERSION> : Answered<Ignored, VersionText> {
  static constexpr char name[] = "read version of system";
  static constexpr char action[] = "Reads the first word of /etc/version.";
};

constexpr uint32_t READ_CONFIG_VERSION = 0x0F;
template <>
struct Statement<READ_CONFIG_VERSION> : Answered<Ignored, VersionText> {
  static constexpr char name[] = "read version of configuration";
  static constexpr char action[] = "Reads the first word of /usr/share/config/version.";
};

constexpr uint32_t READ_RESOURCE_VERSION = 0x10;
template <>
struct Statement<READ_RESOURCE_VERSION> : Answered<Ignored, VersionText> {
  static constexpr char name[] = "read version of resources";
  static constexpr char action[] = "Reads the first word of /root/resource/version.";
};

constexpr uint32_t STOP_USER_INTERFACE = 0x0D;
template <>
struct Statement<STOP_USER_INTERFACE> : NeverAnswered<Ignored> {
  static constexpr char name[] = "stop user interface";
  static constexpr char action[] =
      "Kills the user interface, switches the backlight off and serves no further command until the phone is "
      "restarted. Never answered.";
};

constexpr uint32_t TEST_MEMORY_CARD = 0x26;
template <>
struct Statement<TEST_MEMORY_CARD> : Answered<Ignored> {
  static constexpr char name[] = "test memory card";
  static constexpr char action[] =
      "Reads the card's serial number, then writes a test file to the card, reads it back and compares.";
  static constexpr StatusMeaning statuses[] = {
      {OPEN_FAILED, "the card's information or the test file on it could not be opened"},
      {CONTENT_MISMATCH, "no card (it tells no serial number), or the test file reads back differently"},
      {NO_CARD_SERIAL_NUMBER, "no card: its serial number is 0"}};
};

struct ClockData {
  Moment time;
  uint32_t unused[2];
  static constexpr Field FIELDS[] = {{Form::Moment, sizeof time, "time", "date and time"},
                                     Unused(sizeof unused, "zero")};
};
static_assert(FieldsFill<ClockData>(32));

constexpr uint32_t READ_CLOCK = 0x2E;
template <>
struct Statement<READ_CLOCK> : Answered<Ignored, ClockData> {
  static constexpr char name[] = "read clock";
  static constexpr char action[] = "Reads the real-time clock.";
  static constexpr StatusMeaning statuses[] = {{GENERAL_FAILURE, "the clock could not be opened or read"}};
};

struct ClockRequest {
  Moment time;
  uint32_t unused[2];
  static constexpr Field FIELDS[] = {{Form::Moment, sizeof time, "time", "date and time"},
                                     Unused(sizeof unused)};
};
static_assert(FieldsFill<ClockRequest>(32));

constexpr uint32_t SET_CLOCK = 0x2F;
template <>
struct Statement<SET_CLOCK> : Answered<ClockRequest> {
  static constexpr char name[] = "set clock";
  static constexpr char action[] =
      "Sets the real-time clock; the driver checks the values. The system's own time stays.";
  static constexpr StatusMeaning statuses[] = {
      {GENERAL_FAILURE, "the clock could not be opened, or refused the time"}};
};

struct CalibrationRequest {
  int32_t write;
  static constexpr Field FIELDS[] = {Number("write", "1 writes the file, 0 removes it", ZERO_OR_ONE)};
};
static_assert(FieldsFill<CalibrationRequest>(4));

constexpr uint32_t WRITE_CALIBRATION = 0x45;
template <>
struct Statement<WRITE_CALIBRATION> : Answered<CalibrationRequest> {
  static constexpr char name[] = "write calibration";
  static constexpr char action[] =
      "Writes the touchscreen calibration file with its default values, or removes it.";
  static constexpr StatusMeaning statuses[] = {{OPEN_FAILED, "the calibration file could not be created"}};
};

}  // namespace protocol
