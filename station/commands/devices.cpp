// Display, keypad, touchscreen, motor, LED and the modem's serial line.
#include "protocol/result_codes.h"
#include "station/commands/rows.h"

namespace station {

namespace {

using Kind = AnswerField::Kind;

// Named RGB565 colours.
const std::vector<Choice> COLOURS = {
    {"black", 0x0000}, {"white", 0xFFFF}, {"red", 0xF800}, {"green", 0x07E0}, {"blue", 0x001F},
};

Command DisplayShow() {
  // A pattern's code must stand in both words. With the border differing nothing is drawn, which leaves a way
  // to set the backlight alone.
  const auto pattern = [](const char* code) { return ArgumentTexts{{"fill", code}, {"border", code}}; };
  return {
      .code = 0x28,
      .name = "display",
      .action =
          "Fills the LCD with a colour and a one-pixel border, or with a test pattern (0x1111 horizontal "
          "stripes, 0x2222 vertical stripes, 0x3333 colour bars; the border word must hold the same code, "
          "else "
          "nothing is drawn), and sets the backlight.",
      .request = {Number("fill", "RGB565 colour, or a pattern's code").Choices(COLOURS),
                  Number("border", "RGB565 colour of the border").SameAs("fill").Choices(COLOURS),
                  Number("backlight", "backlight level, 0 is off").Optional("100"), Ignored(4)},
      .answer = {Status()},
      .answer_time = PROMPT,
      .statuses = {{GENERAL_FAILURE, "the framebuffer could not be opened"},
                   {OUT_OF_MEMORY, "the framebuffer could not be mapped"}},
      .verbs = {{"display solid", "fill the LCD with a colour, with a border if wanted"},
                {"display horizontal-stripes", "20 black and white bands, the top one black",
                 pattern("0x1111")},
                {"display vertical-stripes", "20 black and white columns, the leftmost black",
                 pattern("0x2222")},
                {"display colour-bars", "red, green and blue, from left to right", pattern("0x3333")},
                {"display backlight",
                 "set the backlight and leave the picture",
                 {{"fill", "0x3333"}, {"border", "0"}},
                 "backlight"}},
  };
}

Command TouchControl() {
  return {
      .code = 0x2D,
      .name = "touchscreen test",
      .action =
          "Shows five crosses and waits in the background for each to be touched; starts or stops that test, "
          "or "
          "answers the mask of the crosses not touched yet.",
      .request = {Number("mode", "0 stops, 1 starts anew, 2 asks for the state, other: starts"), Ignored(4)},
      .answer = {{Kind::Crosses, 4, "crosses",
                  "state: a bit for each cross still to be touched (1 top left, 2 top right, 4 bottom left, "
                  "8 bottom "
                  "right, 16 centre); start and stop: 0; or a result code"},
                 Padding(8)},
      .answer_time = std::chrono::milliseconds{8'000},
      .statuses = {{GENERAL_FAILURE, "the test could not be started"},
                   {OPEN_FAILED, "state: the framebuffer could not be opened"},
                   {OUT_OF_MEMORY, "state: the framebuffer could not be mapped"},
                   {TOUCH_NOT_OPENED, "state: the touchscreen could not be opened"}},
      .verbs = {{"touch start", "start the touchscreen test", {{"mode", "1"}}, {}, true},
                {"touch state", "ask which crosses are still to be touched", {{"mode", "2"}}},
                {"touch stop", "stop the touchscreen test", {{"mode", "0"}}, {}, true}},
  };
}

Command Switch(std::uint32_t code, std::string name, std::string action, Argument argument,
               std::vector<Verb> verbs) {
  return {
      .code = code,
      .name = std::move(name),
      .action = std::move(action),
      .request = {std::move(argument), Ignored(4)},
      .answer = {Status()},
      .answer_time = PROMPT,
      .statuses = {},
      .verbs = std::move(verbs),
  };
}

}  // namespace

std::vector<Command> DeviceRows() {
  return {
      {
          .code = 0x27,
          .name = "poll keypad",
          .action = "Waits half a second for a key. Answers the key's code, or, when none came, the last "
                    "key's code "
                    "with its low byte set to 1.",
          .request = {Ignored(4)},
          .answer = {{Kind::Key, 4, "key",
                      "key code (key in the high byte), 0 before any key, or a result code"}},
          .answer_time = PROMPT,
          .statuses = {{GENERAL_FAILURE, "the keypad could not be opened"}},
          .verbs = {{"key poll", "ask once for a key press"}},
      },
      DisplayShow(),
      Switch(0x2B, "motor", "Switches the vibration motor.", Number("on", "0 off, any other number on"),
             {{"motor on", "switch the vibration motor on", {{"on", "1"}}},
              {"motor off", "switch the vibration motor off", {{"on", "0"}}}}),
      TouchControl(),
      Switch(0x39, "LED", "Sets the indicator LED's colour.",
             Number("colour", "colour number, as the LED driver counts them").Choices({{"off", 0}}),
             {{"led", "set the indicator LED's colour"}}),
      Switch(0x3A, "UART receive line", "Sets the receive line of the modem's serial port.",
             Number("level", "level of the line"),
             {{"uart-rx", "set the receive line of the modem's serial port"}}),
  };
}

}  // namespace station
