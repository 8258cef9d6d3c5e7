#include "server/modem/control.h"

#include <cstring>

#include "protocol/result_codes.h"
#include "server/base/device.h"
#include "server/flash/gsm_ffs.h"

constexpr char MODEM_CONTROL_PORT[] = "/dev/csmi_tty/1";

// A private request's number is also the code word of its block. The driver writes its reply, with a code of
// its own, into the same block.
constexpr uint32_t CONTROL_MODEM = 5;
constexpr uint32_t READ_VALUES = 17;
constexpr uint32_t VALUES_REPLY = 0x1005;
constexpr uint32_t READ_LINE_STATUS = 67;
constexpr uint32_t LINE_STATUS_REPLY = 0x1043;

struct ModemControlBlock {
  uint32_t code;
  uint8_t argument[12];
};
static_assert(sizeof(ModemControlBlock) == 16);

struct ModemValuesBlock {
  uint32_t code;
  uint16_t value[MODEM_VALUES];
};
static_assert(sizeof(ModemValuesBlock) == sizeof(ModemControlBlock));

constexpr unsigned long GPIO_FIRST_LINE_ON = 0x40044F0E;
constexpr unsigned long GPIO_FIRST_LINE_OFF = 0x40044F0F;
constexpr unsigned long GPIO_SECOND_LINE_ON = 0x40044F35;
constexpr unsigned long GPIO_SECOND_LINE_OFF = 0x40044F36;
constexpr unsigned long GPIO_THIRD_LINE_ON = 0x40044F38;
constexpr unsigned long GPIO_THIRD_LINE_OFF = 0x40044F39;
constexpr unsigned long GPIO_READ_MODEM_STATE = 0x80044F65;

int32_t ModemControl(const char* text) {
  if (strcmp(text, "0") != 0 && strcmp(text, "1") != 0) return NOT_SUPPORTED;
  ModemControlBlock block = {CONTROL_MODEM, {static_cast<uint8_t>(text[0] - '0')}};
  const int32_t result = WithDevice(MODEM_CONTROL_PORT, O_RDWR, OPEN_FAILED, [&](int port) {
    IssueRequest(port, CONTROL_MODEM, &block);
    return SUCCESS;
  });
  if (result != SUCCESS) return result;
  // Also after a refused request, on purpose: the image is saved whatever the modem's driver makes of it.
  SaveGsmFfsImage();
  return SUCCESS;
}

int32_t CheckModemState() {
  return WithDevice(GPIO_DEVICE, O_RDWR, OPEN_FAILED, [](int gpio) {
    int32_t state = -1;  // stays if the request fails
    IssueRequest(gpio, GPIO_READ_MODEM_STATE, &state);
    if (state == 1) return SUCCESS;
    return state == 0 ? MODEM_STATE_ZERO : REQUEST_FAILED;
  });
}

int32_t SetModemLines(int32_t first, int32_t second, int32_t third) {
  return WithDevice(GPIO_DEVICE, O_RDWR, OPEN_FAILED, [&](int gpio) {
    IssueRequest(gpio, first != 0 ? GPIO_FIRST_LINE_ON : GPIO_FIRST_LINE_OFF);
    IssueRequest(gpio, second != 0 ? GPIO_SECOND_LINE_ON : GPIO_SECOND_LINE_OFF);
    IssueRequest(gpio, third != 0 ? GPIO_THIRD_LINE_ON : GPIO_THIRD_LINE_OFF);
    return SUCCESS;
  });
}

int32_t QueryModemValues(uint32_t* out) {
  ModemValuesBlock block = {READ_VALUES, {}};
  const int32_t result = WithDevice(MODEM_CONTROL_PORT, O_RDWR, OPEN_FAILED, [&](int port) {
    if (IssueRequest(port, READ_VALUES, &block) != 0) return REQUEST_FAILED;
    return block.code == VALUES_REPLY ? SUCCESS : GENERAL_FAILURE;
  });
  if (result != SUCCESS) return result;
  for (uint32_t i = 0; i < MODEM_VALUES; ++i) out[i] = block.value[i];
  return SUCCESS;
}

int32_t QueryModemValue(uint32_t* out) {
  uint32_t values[MODEM_VALUES];
  if (QueryModemValues(values) != SUCCESS) return GENERAL_FAILURE;
  *out = values[1];
  return SUCCESS;
}

int32_t QueryModemByte(uint8_t* out) {
  ModemControlBlock block = {READ_LINE_STATUS, {}};
  // The request's result is ignored on purpose: only a real reply has the reply's code.
  return WithDevice(MODEM_CONTROL_PORT, O_RDONLY, OPEN_FAILED, [&](int port) {
    IssueRequest(port, READ_LINE_STATUS, &block);
    if (block.code != LINE_STATUS_REPLY) return GENERAL_FAILURE;
    *out = block.argument[0];
    return SUCCESS;
  });
}
