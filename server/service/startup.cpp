#include "server/service/startup.h"

#include "protocol/result_codes.h"
#include "server/base/gpio.h"
#include "server/channel/channel.h"
#include "server/channel/usb_gadget.h"
#include "server/devices/audio_gpio.h"
#include "server/devices/display.h"

constexpr unsigned long GPIO_SERVICE_START = 0x40044F3B;

int32_t ServiceStartup(int32_t /*unused*/) {
  IssueGpioRequest(GPIO_SERVICE_START);
  AudioGpioLineAOff();
  ReloadUsbGadget();
  if (SetChannelOpen(1) < 0) return HOST_PORT_NOT_OPENED;
  StandbyHold = ProhibitStandby();
  DisplayTest(0, 0, 0);
  return SUCCESS;
}
