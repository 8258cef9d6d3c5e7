#include "base/gpio.h"

#include "base/device.h"
#include "base/result_codes.h"

void IssueGpioRequest(unsigned long request) {
  WithDevice(GPIO_DEVICE, O_RDWR, OPEN_FAILED, [&](int gpio) {
    DriverRequest(gpio, request);
    return SUCCESS;
  });
}
