#include "server/devices/keypad.h"

#include <array>

#include "protocol/result_codes.h"
#include "protocol/selectors.h"
#include "server/base/device.h"
#include "server/base/wait.h"

struct KeyCode {
  uint16_t raw;
  uint16_t code;
};

// The keys' numbers without their names, which only a host shows.
constexpr uint32_t KEY_COUNT = sizeof KEYPAD_KEYS / sizeof KEYPAD_KEYS[0];
constexpr auto KeyCodeTable = [] {
  std::array<KeyCode, KEY_COUNT> table = {};
  for (uint32_t row = 0; row < KEY_COUNT; ++row) {
    table[row] = {KEYPAD_KEYS[row].input_code, static_cast<uint16_t>(KEYPAD_KEYS[row].code << 8)};
  }
  return table;
}();

// The kernel's `struct input_event` (linux/input.h) on a 32-bit machine.
struct InputEvent {
  uint32_t seconds;
  uint32_t microseconds;
  uint16_t type;
  uint16_t code;
  uint32_t value;
};
static_assert(sizeof(InputEvent) == 16);

static uint32_t LastKey = 0;

uint32_t KeyTranslate(uint32_t raw) {
  if (raw == 0) return 0;
  for (const KeyCode& key : KeyCodeTable) {
    if (raw >> 16 == key.raw) return key.code;
  }
  return uint32_t{UNKNOWN_KEY} << 8 | (raw & 0xFF);
}

// Returns the first event's value, or 0 if no event came. The other queued events are read with it and
// dropped, on purpose: a poll reports one key, and a release must not follow as the next key.
static uint32_t ReadRawKey(int keypad) {
  InputEvent events[64];
  static_assert(sizeof events == 1024);
  timeval left = {0, 500000};
  if (WaitReadable(keypad, &left) <= 0) return 0;
  if (read(keypad, events, sizeof events) < static_cast<ssize_t>(sizeof events[0])) return 0;
  return events[0].value;
}

int32_t KeypadPoll() {
  return WithDevice("/dev/input/event0", O_RDONLY | O_NONBLOCK, GENERAL_FAILURE, [](int keypad) {
    const uint32_t raw = ReadRawKey(keypad);
    if (raw == 0) return static_cast<int32_t>(LastKey);
    const uint32_t code = KeyTranslate(raw);
    LastKey = (code & 0xFF00) | REMEMBERED_KEY;
    return static_cast<int32_t>(code);
  });
}
