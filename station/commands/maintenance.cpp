// Settings, versions, clock, power and memory card.
#include "protocol/result_codes.h"
#include "station/commands/rows.h"

namespace station {

namespace {

using Kind = AnswerField::Kind;

Command VersionRead(std::uint32_t code, std::string which, std::string path, std::string verb) {
  return {
      .code = code,
      .name = "read version of " + which,
      .action = "Reads the first word of " + path + ".",
      .request = {Ignored(4)},
      .answer = {Status(), {Kind::Text, 128, "version", "the word; empty when the file cannot be read"}},
      .answer_time = PROMPT,
      .statuses = {},
      .verbs = {{"version " + verb, "read the version of the " + which}},
  };
}

}  // namespace

std::vector<Command> MaintenanceRows() {
  return {
      {
          .code = 0x02,
          .name = "power off",
          .action = "Waits a second, closes the serial port and powers the phone off. Never answered.",
          .request = {Ignored(4)},
          .answer = {},
          .answer_time = PROMPT,
          .statuses = {},
          .verbs = {{"power-off", "power the phone off", {}, {}, false, "Power the phone off?"}},
      },
      {
          .code = 0x03,
          .name = "factory reset",
          .action =
              "Removes the camera test pictures, restores the default sounds, zeroes the call meter and runs "
              "the set-up reset and clear scripts.",
          .request = {Ignored(4)},
          .answer = {Status()},
          .answer_time = std::chrono::milliseconds{60'000},
          .statuses = {},
          .verbs = {{"factory-reset", "bring the user's settings back to what they were at delivery"}},
      },
      VersionRead(0x0A, "system", "/etc/version", "system"),
      VersionRead(0x0F, "configuration", "/usr/share/config/version", "configuration"),
      VersionRead(0x10, "resources", "/root/resource/version", "resources"),
      {
          .code = 0x0D,
          .name = "stop user interface",
          .action =
              "Kills the user interface, switches the backlight off and serves no further command until the "
              "phone is restarted. Never answered.",
          .request = {Ignored(4)},
          .answer = {},
          .answer_time = PROMPT,
          .statuses = {},
          .verbs = {{"stop-ui", "stop the user interface; the phone takes no command until it is restarted"}},
      },
      {
          .code = 0x26,
          .name = "test memory card",
          .action = "Reads the card's serial number, then writes a test file to the card, reads it back and "
                    "compares.",
          .request = {Ignored(4)},
          .answer = {Status()},
          .answer_time = std::chrono::milliseconds{15'000},
          .statuses = {{OPEN_FAILED, "the card's information or the test file on it could not be opened"},
                       {CONTENT_MISMATCH,
                        "no card (it tells no serial number), or the test file reads back differently"},
                       {NO_CARD_SERIAL_NUMBER, "no card: its serial number is 0"}},
          .verbs = {{"memory-card", "test the memory card"}},
      },
      {
          .code = 0x2E,
          .name = "read clock",
          .action = "Reads the real-time clock.",
          .request = {Ignored(4)},
          .answer = {Status(),
                     {Kind::Moment, 24, "time", "year, month, day, hour, minute, second, one word each"},
                     Padding(8)},
          .answer_time = PROMPT,
          .statuses = {{GENERAL_FAILURE, "the clock could not be opened or read"}},
          .verbs = {{"clock get", "read the real-time clock"}},
      },
      {
          .code = 0x2F,
          .name = "set clock",
          .action = "Sets the real-time clock; the driver judges the values. The system's own time stays.",
          .request = {Moment("time", "date and time, or \"now\" for this computer's local time"), Ignored(8)},
          .answer = {Status()},
          .answer_time = PROMPT,
          .statuses = {{GENERAL_FAILURE, "the clock could not be opened, or refused the time"}},
          .verbs = {},
      },
      {
          .code = 0x45,
          .name = "write calibration",
          .action = "Writes the touchscreen calibration file with its default values, or removes it.",
          .request = {Number("write", "1 writes the file, 0 removes it")},
          .answer = {Status()},
          .answer_time = PROMPT,
          .statuses = {{OPEN_FAILED, "the calibration file could not be created"}},
          .verbs = {{"calibration write", "write the default touchscreen calibration", {{"write", "1"}}},
                    {"calibration remove", "remove the touchscreen calibration", {{"write", "0"}}}},
      },
  };
}

}  // namespace station
