#include "server/base/device.h"

#include "protocol/result_codes.h"

void IssueGpioRequest(unsigned long request) {
  WithDevice(GPIO_DEVICE, O_RDWR | O_CLOEXEC, OPEN_FAILED, [&](int gpio) {
    IssueRequest(gpio, request);
    return SUCCESS;
  });
}
