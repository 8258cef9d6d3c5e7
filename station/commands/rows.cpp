#include "station/commands/rows.h"

namespace station {

namespace {

using namespace protocol;
using std::chrono::milliseconds;

// Erasing and writing a partition of old NOR or NAND flash takes seconds.
constexpr milliseconds FLASH_WRITE{20'000};
// A stop waits for the second that is being written; the AMR clip's path and the radio's requests take
// seconds too.
constexpr milliseconds SOUND{8'000};
// The Bluetooth test tool has no time limit of its own.
constexpr milliseconds TOOL{60'000};

template <std::uint32_t code>
Command Row(std::vector<Verb> verbs, milliseconds answer_time = PROMPT,
            const std::vector<Presentation>& presentations = {}) {
  return MakeCommand(Describe<code>(), answer_time, presentations, std::move(verbs));
}

constexpr const char* OVERWRITE_BLUETOOTH = "Overwrite the phone's Bluetooth settings?";

// For commands that tasks send, with words of their own.
constexpr std::initializer_list<Verb> NO_VERBS = {};

std::vector<Command> LinkRows() {
  return {
      Row<PING>({{"ping", "ask whether the phone's test server answers"}}),
      Row<NO_OPERATION>({{"no-operation", "send the command that does nothing and is never answered"}}),
      Row<PAUSE_LINK>(NO_VERBS),
  };
}

std::vector<Command> FlashRows() {
  return {
      Row<SET_PARTITION_WORD>({{.words = "partition-word",
                                .help = "set the word in the partition information and its backup",
                                .question = "Overwrite the word in the phone's partition information?"}},
                              FLASH_WRITE),
      Row<READ_FIRST_FIELD>(
          {{"factory-field read-first", "read the first 10-byte field of the factory information"}}),
      Row<WRITE_FIRST_FIELD>(
          {{"factory-field write-first", "ask to write the first field, which the phone always refuses"}}),
      Row<READ_SECOND_FIELD>(
          {{"factory-field read-second", "read the second 10-byte field of the factory information"}}),
      Row<WRITE_SECOND_FIELD>(
          {{"factory-field write-second", "ask to write the second field, which the phone always refuses"}}),
      Row<READ_IDENTITY>({{"identity read", "read the phone's 15-digit identity number"}}),
      Row<WRITE_IDENTITY>(NO_VERBS, FLASH_WRITE),
      Row<CHECK_IDENTITY_BLANK>(
          {{"identity check-blank", "check that no identity number has been programmed yet"}}),
      Row<WRITE_BLUETOOTH_ADDRESS>({{.words = "bluetooth-address write",
                                     .help = "store the phone's Bluetooth device address in flash",
                                     .question = OVERWRITE_BLUETOOTH}},
                                   FLASH_WRITE),
      Row<WRITE_BLUETOOTH_ADDRESS_EXTENDED>(
          {{.words = "bluetooth-address write-extended",
            .help = "store the Bluetooth device address by its extended code",
            .question = OVERWRITE_BLUETOOTH}},
          FLASH_WRITE),
      Row<READ_FACTORY_INFO>(NO_VERBS),
      Row<READ_FACTORY_INFO_EXTENDED>(
          {{"factory-info read-extended", "read the factory information by its extended code"}}),
      Row<WRITE_FACTORY_INFO>(NO_VERBS, FLASH_WRITE, {FromFile("block", "file")}),
      Row<SAVE_MODEM_IMAGE>({{.words = "modem-image save",
                              .help = "copy the modem's file-system image into flash",
                              .question = "Overwrite the modem's file-system image in the phone's flash?"}},
                            FLASH_WRITE),
      Row<READ_MODEM_IMAGE>(
          {{"modem-image chunk", "read the next 1024 bytes of the modem's file-system image"}}),
  };
}

std::vector<Command> MaintenanceRows() {
  return {
      Row<POWER_OFF>(
          {{.words = "power-off", .help = "power the phone off", .question = "Power the phone off?"}}),
      Row<FACTORY_RESET>({{.words = "factory-reset",
                           .help = "bring the user's settings back to what they were at delivery",
                           .question = "Reset the phone? The user's settings are lost."}},
                         milliseconds{60'000}),
      Row<READ_SYSTEM_VERSION>({{"version system", "read the version of the system"}}),
      Row<READ_CONFIG_VERSION>({{"version configuration", "read the version of the configuration"}}),
      Row<READ_RESOURCE_VERSION>({{"version resources", "read the version of the resources"}}),
      Row<STOP_USER_INTERFACE>(
          {{.words = "stop-ui",
            .help = "stop the user interface; the phone takes no command until it is restarted",
            .question = "Stop the user interface? The phone takes no command until it is restarted."}}),
      Row<TEST_MEMORY_CARD>({{"memory-card", "test the memory card"}}, milliseconds{15'000}),
      Row<READ_CLOCK>({{"clock get", "read the real-time clock"}}),
      Row<SET_CLOCK>(NO_VERBS),
      Row<WRITE_CALIBRATION>(
          {{"calibration write", "write the default touchscreen calibration", {{"write", 1}}},
           {"calibration remove", "remove the touchscreen calibration", {{"write", 0}}}}),
  };
}

std::vector<Command> ModemRows() {
  // Waking the modem takes up to three seconds of its own; the last round may run a second over.
  Command exchange_at = Row<EXCHANGE_AT>(NO_VERBS, milliseconds{6'000}, {Default("timeout", 3000)});
  exchange_at.waits_for = "timeout";
  return {
      Row<READ_MODEM_VALUES>({{"modem info", "read the modem's six information words"}}),
      // Two AT commands of up to ten seconds each.
      Row<CHECK_SIM>({{"sim-check", "check through the modem that the SIM is ready (takes up to 20 s)"}},
                     milliseconds{25'000}),
      Row<READ_MODEM_VALUE>({{"modem status-word", "read the second of the modem's information words"}}),
      exchange_at,
      Row<PASS_THROUGH>(NO_VERBS),
      Row<CHECK_MODEM_STATE>({{"modem state", "check that the modem's state word is 1"}}),
      Row<SET_MODEM_LINES>({{"modem lines", "switch the three modem lines on or off"}}),
      Row<CONTROL_MODEM>({{.words = "modem control",
                           .help = "send the modem its control request and save its file-system image",
                           .question = "Send the control request and overwrite the modem's file-system image "
                                       "in the phone's flash?"}},
                         FLASH_WRITE),
      Row<READ_MODEM_LINE>({{"modem line", "read the modem's line status byte"}}),
  };
}

std::vector<Command> SoundRows() {
  return {
      Row<CONTROL_TONE>({{"tone start", "play up to three tones until they are stopped", {{"start", 1}}},
                         {"tone stop",
                          "stop the tones",
                          {{"start", 0},
                           {"frequency", 0},
                           {"frequency-2", 0},
                           {"frequency-3", 0},
                           {"volume", 0},
                           {"route", 0}}}},
                        SOUND,
                        {DefaultPositional("frequency-2", 0), DefaultPositional("frequency-3", 0),
                         Default("volume", 40), Default("route", 1)}),
      Row<SET_AUDIO_PATH>({{"audio-path on", "set a sound path up", {{"enable", 1}}},
                           {"audio-path off", "switch the sound off", {{"enable", 0}, {"path", 0}}}}),
      Row<CONTROL_RADIO>(
          {{"radio measure",
            "measure the signal at a frequency, then switch the radio off",
            {{"mode", RADIO_MEASURE}}},
           {"radio play",
            "play the radio until it is switched off",
            {{"mode", RADIO_PLAY_LINE_B}, {"extra", 0}, {"extra-flag", 0}}},
           {"radio tune",
            "tune the radio and leave it on without switching audio line B on",
            {{"mode", RADIO_PLAY}, {"extra", 0}, {"extra-flag", 0}}},
           {"radio off",
            "switch the radio off",
            {{"mode", RADIO_OFF}, {"frequency", 0}, {"volume", 0}, {"extra", 0}, {"extra-flag", 0}}}},
          SOUND, {Default("volume", 32768), Default("extra", 0), Default("extra-flag", 0)}),
      Row<RUN_IN>(
          {{.words = "run-in",
            .help = "start the endless run-in cycle; the phone takes no command until it is restarted",
            .question = "Start the run-in cycle? The phone takes no command until it is restarted."}}),
      Row<PLAY_MEDIA>({{"play", "play a media clip on the phone, or stop it"}}, SOUND,
                      {Default("path", 2), Default("argument", 0)}),
  };
}

// A pattern's code must be in both words.
ArgumentValues Pattern(std::int32_t code) {
  return {{"fill", code}, {"border", code}};
}

std::vector<Command> DeviceRows() {
  return {
      Row<POLL_KEYPAD>({{"key poll", "ask once for a key press"}}),
      Row<SHOW_DISPLAY>(
          {{"display solid", "fill the LCD with a colour, with a border if wanted"},
           {"display horizontal-stripes", "20 black and white bands, the top one black",
            Pattern(PATTERN_HORIZONTAL_STRIPES)},
           {"display vertical-stripes", "20 black and white columns, the leftmost black",
            Pattern(PATTERN_VERTICAL_STRIPES)},
           {"display colour-bars", "red, green and blue, from left to right", Pattern(PATTERN_COLOUR_BARS)},
           // With another border a pattern is not drawn, which leaves a way to set the backlight alone.
           {"display backlight",
            "set the backlight and leave the picture",
            {{"fill", PATTERN_COLOUR_BARS}, {"border", 0}},
            "backlight"}},
          PROMPT, {SameAs("border", "fill"), Default("backlight", 100)}),
      Row<SWITCH_MOTOR>({{"motor on", "switch the vibration motor on", {{"on", 1}}},
                         {"motor off", "switch the vibration motor off", {{"on", 0}}}}),
      Row<CONTROL_TOUCH_TEST>(
          {{"touch start", "start the touchscreen test", {{"mode", TOUCH_RESTART}}, {}, true},
           {"touch state", "ask which crosses are still to be touched", {{"mode", TOUCH_READ_RESULT}}},
           {"touch stop", "stop the touchscreen test", {{"mode", TOUCH_STOP}}, {}, true}},
          SOUND),
      Row<SET_LED>({{"led", "set the indicator LED's colour"}}),
      Row<SET_UART_RX>({{"uart-rx", "set the receive line of the modem's serial port"}}),
  };
}

std::vector<Command> BluetoothRows() {
  return {
      Row<BT_FUNCTION_1>(
          {{"bluetooth three-numbers", "function 1: send three numbers, get the status alone"}}, TOOL),
      Row<BT_FUNCTION_2>({{"bluetooth address", "ask the Bluetooth chip for its device address"}}, TOOL),
      Row<BT_FUNCTION_3>({{"bluetooth number-for-two-numbers", "function 3: send two numbers, get a number"}},
                         TOOL),
      Row<BT_FUNCTION_4>({{"bluetooth data-for-data", "function 4: send an address and data, get data"}},
                         TOOL, {LengthOf("length", "data")}),
      Row<BT_FUNCTION_5>(
          {{"bluetooth bytes-for-code", "function 5: send an address and a short code, get 23 bytes"}}, TOOL),
      Row<BT_FUNCTION_6>({{"bluetooth number-for-number", "function 6: send a number, get a number"}}, TOOL),
      Row<BT_FUNCTION_7>(
          {{"bluetooth address-for-number", "function 7: send a number, get a device address"}}, TOOL),
  };
}

std::vector<Command> CameraRows() {
  return {
      Row<QUERY_CAMERA>({{"camera query", "send the query that the phone always refuses"}}),
      // A second for the sensor to settle, and the encoding of two megapixels on the phone's processor.
      Row<TEST_CAMERA>({{"camera self-test",
                         "check the camera's sensor with its white and black test patterns",
                         {{"action", CAMERA_SELF_TEST}, {"width", 0}, {"height", 0}, {"rotation", 0}}}},
                       milliseconds{30'000}),
      Row<READ_PICTURE>({{"camera chunk", "read the next 1024 bytes of a test picture, or stop reading"}}),
  };
}

}  // namespace

std::vector<Command> CommandRows() {
  std::vector<Command> rows;
  for (const auto& part : {LinkRows(), FlashRows(), MaintenanceRows(), ModemRows(), SoundRows(), DeviceRows(),
                           BluetoothRows(), CameraRows()}) {
    rows.insert(rows.end(), part.begin(), part.end());
  }
  return rows;
}

}  // namespace station
