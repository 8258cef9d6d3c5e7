#include "server/base/gpio.h"

#include "protocol/result_codes.h"
#include "server/base/device.h"

void IssueGpioRequest(unsigned long request) {
  WithDevice(GPIO_DEVICE, O_RDWR, OPEN_FAILED, [&](int gpio) {
    DriverRequest(gpio, request);
    return SUCCESS;
  });
}
