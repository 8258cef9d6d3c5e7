#include "server/modem/control.h"

#include <cstring>

#include "protocol/result_codes.h"
#include "server/base/device.h"
#include "server/base/gpio.h"
#include "server/flash/gsm_ffs.h"
#include "server/modem/control_port.h"

constexpr uint32_t CONTROL_MODEM = 5;

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
    DriverRequest(port, CONTROL_MODEM, &block);
    return SUCCESS;
  });
  if (result != SUCCESS) return result;
  SaveGsmFfsImage();
  return SUCCESS;
}

int32_t CheckModemState() {
  return WithDevice(GPIO_DEVICE, O_RDWR, OPEN_FAILED, [](int gpio) {
    int32_t state = -1;
    DriverRequest(gpio, GPIO_READ_MODEM_STATE, &state);
    if (state == 1) return SUCCESS;
    return state == 0 ? MODEM_STATE_ZERO : REQUEST_FAILED;
  });
}

int32_t SetModemLines(int32_t first, int32_t second, int32_t third) {
  return WithDevice(GPIO_DEVICE, O_RDWR, OPEN_FAILED, [&](int gpio) {
    DriverRequest(gpio, first != 0 ? GPIO_FIRST_LINE_ON : GPIO_FIRST_LINE_OFF);
    DriverRequest(gpio, second != 0 ? GPIO_SECOND_LINE_ON : GPIO_SECOND_LINE_OFF);
    DriverRequest(gpio, third != 0 ? GPIO_THIRD_LINE_ON : GPIO_THIRD_LINE_OFF);
    return SUCCESS;
  });
}
