// Numbers that requests and answers carry and both ends know by name: patterns, clips, modes, keys, crosses.
#pragma once

#include <cstdint>

// LCD colours, RGB565.
constexpr uint16_t BLACK = 0x0000;
constexpr uint16_t WHITE = 0xFFFF;
constexpr uint16_t RED = 0xF800;
constexpr uint16_t GREEN = 0x07E0;
constexpr uint16_t BLUE = 0x001F;

// In place of a fill colour. A pattern is drawn only if the border word holds the same code; otherwise
// nothing is drawn.
constexpr int32_t PATTERN_HORIZONTAL_STRIPES = 0x1111;  // 20 bands of 16 rows, black first
constexpr int32_t PATTERN_VERTICAL_STRIPES = 0x2222;    // 20 bands of 12 columns, black first
constexpr int32_t PATTERN_COLOUR_BARS = 0x3333;         // 80 columns each of red, green and blue

// Media clips.
constexpr int32_t CLIP_STOP = 0;
constexpr int32_t CLIP_MP3 = 10;
constexpr int32_t CLIP_AAC = 20;
constexpr int32_t CLIP_AMR = 21;
constexpr int32_t CLIP_PRELOADED = 30;

// FM radio. Every other mode plays without switching audio line B on.
constexpr int32_t RADIO_OFF = 0;
constexpr int32_t RADIO_MEASURE = 1;
constexpr int32_t RADIO_PLAY_LINE_B = 2;
constexpr int32_t RADIO_PLAY = 3;

// Touchscreen test. Every other mode starts it, without stopping a running one first.
constexpr int32_t TOUCH_STOP = 0;
constexpr int32_t TOUCH_RESTART = 1;
constexpr int32_t TOUCH_READ_RESULT = 2;

// The touchscreen test's crosses, in the order of their bits: centre on the LCD and name of the place.
struct TouchCross {
  int32_t x, y;
  const char* place;
};
constexpr TouchCross TOUCH_CROSSES[] = {{20, 20, "top left"},
                                        {220, 20, "top right"},
                                        {20, 300, "bottom left"},
                                        {220, 300, "bottom right"},
                                        {120, 160, "centre"}};

// Camera test.
constexpr int32_t CAMERA_SELF_TEST = 0;
constexpr int32_t CAPTURE_BLEMISH = 10;
constexpr int32_t DELETE_BLEMISH = 12;
constexpr int32_t CAPTURE_FOCUS = 20;
constexpr int32_t DELETE_FOCUS = 22;
constexpr int32_t MAX_PICTURE_WIDTH = 1200;
constexpr int32_t MAX_PICTURE_HEIGHT = 1600;

// Camera picture reader.
constexpr int32_t READ_BLEMISH = 14;
constexpr int32_t STOP_READING_BLEMISH = 15;
constexpr int32_t READ_FOCUS = 24;
constexpr int32_t STOP_READING_FOCUS = 25;

// The keys that the keypad test knows, in the order in which it looks them up.
struct KeypadKey {
  uint16_t input_code;  // the driver's number, as linux/input-event-codes.h has it
  uint8_t code;         // the high byte of the answered key code
  const char* name;     // the input system's name for the driver's number
};
constexpr KeypadKey KEYPAD_KEYS[] = {
    {0x92, 0x3F, "deletefile"}, {0x70, 0x80, "macro"}, {0x6F, 0x90, "delete"}, {0xB0, 0x17, "edit"},
    {0xAE, 0x18, "exit"},       {0x74, 0x11, "power"}, {0x83, 0x12, "undo"},   {0x84, 0x2C, "front"},
    {0x85, 0x2D, "copy"},       {0x86, 0x2E, "open"},  {0x87, 0x2F, "paste"},  {0xA2, 0x3D, "eject"},
    {0xDF, 0x85, "cancel"},
};
constexpr uint8_t UNKNOWN_KEY = 0xFF;     // high byte of a key outside the table; its state is the low byte
constexpr uint8_t REMEMBERED_KEY = 0x01;  // low byte of a key code that repeats the last key: no new one came

// Ends the relay to the modem if the phone reads it in one piece: a head, "backarm9", and its complement.
constexpr uint8_t LEAVE_FRAME[20] = {0xF1, 0x00, 0x00, 0x00, 'b',  'a',  'c',  'k',  'a',  'r',
                                     'm',  '9',  0x9D, 0x9E, 0x9C, 0x94, 0x9E, 0x8D, 0x92, 0xC6};

// Sizes of records, in bytes or characters.
constexpr uint32_t FACTORY_INFO_SIZE = 128;
constexpr uint32_t FACTORY_FIELD_SIZE = 10;
constexpr uint32_t IDENTITY_DIGITS = 15;
constexpr char BLANK_IDENTITY[] = "000000011234564";  // what an identity area reads as that holds no number
constexpr uint32_t BLUETOOTH_ADDRESS_SIZE = 6;
constexpr uint32_t GSM_FFS_IMAGE_SIZE = 80 * 1024;
constexpr uint32_t GSM_FFS_CHUNK_SIZE = 1024;
constexpr uint32_t PICTURE_CHUNK_SIZE = 1024;
constexpr uint32_t VERSION_LENGTH = 128;
constexpr uint32_t MODEM_VALUES = 6;
constexpr uint32_t AT_TEXT_SIZE =
    32;  // the command of the request, and the part of the reply that is answered
constexpr uint32_t BT_ADDRESS_SIZE = 6;
constexpr uint32_t BT_BLOCK_SIZE = 16;
constexpr uint32_t BT_CODE_SIZE = 4;
constexpr uint32_t BT_CODE_RESULT_SIZE = 23;
