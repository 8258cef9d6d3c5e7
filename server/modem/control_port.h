// The modem driver's control port. A private request's number is the code word of its block too; the driver
// writes its reply, with a code of its own, into the same block.
#pragma once

#include <cstdint>

constexpr char MODEM_CONTROL_PORT[] = "/dev/csmi_tty/1";

struct ModemControlBlock {
  uint32_t code;
  uint8_t argument[12];
};
static_assert(sizeof(ModemControlBlock) == 16);
