// Commands on display, keypad, touchscreen, motor, LED and the modem's serial line.
#pragma once

#include "protocol/statement.h"

namespace protocol {

constexpr uint32_t POLL_KEYPAD = 0x27;
template <>
struct Statement<POLL_KEYPAD> : Answered<Ignored> {
  static constexpr char name[] = "poll keypad";
  static constexpr char action[] =
      "Waits half a second for a key. Answers the key's code; if none came, the last key's code with its low "
      "byte "
      "set to 1.";
  static constexpr Field first_word = {Form::Key, 4, "key",
                                       "key code (key in the high byte), 0 before any key, or a result code"};
  static constexpr StatusMeaning statuses[] = {{GENERAL_FAILURE, "the keypad could not be opened"}};
};

struct DisplayRequest {
  int32_t fill;
  int32_t border;
  int32_t backlight;
  int32_t unused;
  static constexpr Choice COLOURS[] = {
      {"black", BLACK}, {"white", WHITE}, {"red", RED}, {"green", GREEN}, {"blue", BLUE}};
  static constexpr Range WORD_OF_COLOUR = {0, 0xFFFF};
  static constexpr Field FIELDS[] = {
      OneOf("fill", "RGB565 colour, or a pattern's code", COLOURS, WORD_OF_COLOUR),
      OneOf("border", "RGB565 colour of the border", COLOURS, WORD_OF_COLOUR),
      Number("backlight", "backlight level, 0 is off", {0, 100}), Unused(4)};
};
static_assert(FieldsFill<DisplayRequest>(16));

constexpr uint32_t SHOW_DISPLAY = 0x28;
template <>
struct Statement<SHOW_DISPLAY> : Answered<DisplayRequest> {
  static constexpr char name[] = "display";
  static constexpr char action[] =
      "Fills the LCD with a colour and a one-pixel border, or with a test pattern (0x1111 horizontal "
      "stripes, 0x2222 "
      "vertical stripes, 0x3333 colour bars; if the border word does not hold the same code, nothing is "
      "drawn), and "
      "sets the backlight.";
  static constexpr StatusMeaning statuses[] = {{GENERAL_FAILURE, "the framebuffer could not be opened"},
                                               {OUT_OF_MEMORY, "the framebuffer could not be mapped"}};
};

struct MotorRequest {
  int32_t on;
  int32_t unused;
  static constexpr Field FIELDS[] = {Number("on", "0 off, any other number on", ZERO_OR_ONE), Unused(4)};
};
static_assert(FieldsFill<MotorRequest>(8));

constexpr uint32_t SWITCH_MOTOR = 0x2B;
template <>
struct Statement<SWITCH_MOTOR> : Answered<MotorRequest> {
  static constexpr char name[] = "motor";
  static constexpr char action[] = "Switches the vibration motor.";
};

struct TouchRequest {
  int32_t mode;
  int32_t unused;
  static constexpr Field FIELDS[] = {
      Number("mode", "0 stops, 1 starts anew, 2 asks for the state, other: starts"), Unused(4)};
};
static_assert(FieldsFill<TouchRequest>(8));

// Always zero: the first word tells everything.
struct TouchData {
  uint32_t unused[2];
  static constexpr Field FIELDS[] = {Unused(sizeof unused, "zero")};
};
static_assert(FieldsFill<TouchData>(8));

constexpr uint32_t CONTROL_TOUCH_TEST = 0x2D;
template <>
struct Statement<CONTROL_TOUCH_TEST> : Answered<TouchRequest, TouchData> {
  static constexpr char name[] = "touchscreen test";
  static constexpr char action[] =
      "Shows five crosses and waits in the background for each to be touched; starts or stops that test, or "
      "answers "
      "the mask of the crosses not touched yet.";
  static constexpr Field first_word = {Form::Crosses, 4, "crosses",
                                       "state: a bit for each cross still to be touched (1 top left, 2 top "
                                       "right, 4 bottom left, 8 bottom right, 16 "
                                       "centre); start and stop: 0; or a result code"};
  static constexpr StatusMeaning statuses[] = {
      {GENERAL_FAILURE, "the test could not be started"},
      {OPEN_FAILED, "state: the framebuffer could not be opened"},
      {OUT_OF_MEMORY, "state: the framebuffer could not be mapped"},
      {TOUCH_NOT_OPENED, "state: the touchscreen could not be opened"}};
};

struct LedRequest {
  int32_t colour;
  int32_t unused;
  static constexpr Choice OFF[] = {{"off", 0}};
  static constexpr Field FIELDS[] = {
      OneOf("colour", "colour number, as the LED driver counts them", OFF, {0, 7}), Unused(4)};
};
static_assert(FieldsFill<LedRequest>(8));

constexpr uint32_t SET_LED = 0x39;
template <>
struct Statement<SET_LED> : Answered<LedRequest> {
  static constexpr char name[] = "LED";
  static constexpr char action[] = "Sets the indicator LED's colour.";
};

struct UartRxRequest {
  int32_t level;
  int32_t unused;
  static constexpr Field FIELDS[] = {Number("level", "level of the line", ZERO_OR_ONE), Unused(4)};
};
static_assert(FieldsFill<UartRxRequest>(8));

constexpr uint32_t SET_UART_RX = 0x3A;
template <>
struct Statement<SET_UART_RX> : Answered<UartRxRequest> {
  static constexpr char name[] = "UART receive line";
  static constexpr char action[] = "Sets the receive line of the modem's serial port.";
};

}  // namespace protocol
