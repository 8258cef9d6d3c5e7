#include "server/devices/keypad.h"

#include "protocol/result_codes.h"
#include "server/base/device.h"
#include "server/base/wait.h"

struct KeyCode {
  uint16_t raw;
  uint16_t code;
};

constexpr KeyCode KeyCodeTable[] = {
    {0x0092, 0x3F00}, {0x0070, 0x8000}, {0x006F, 0x9000}, {0x00B0, 0x1700}, {0x00AE, 0x1800},
    {0x0074, 0x1100}, {0x0083, 0x1200}, {0x0084, 0x2C00}, {0x0085, 0x2D00}, {0x0086, 0x2E00},
    {0x0087, 0x2F00}, {0x00A2, 0x3D00}, {0x00DF, 0x8500},
};

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
  return 0xFF00 | (raw & 0xFF);
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
    LastKey = (code & 0xFF00) | 1;
    return static_cast<int32_t>(code);
  });
}
