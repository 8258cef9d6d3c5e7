#include "service/startup.h"

#include "base/gpio.h"
#include "base/result_codes.h"
#include "devices/audio_gpio.h"
#include "devices/display.h"
#include "service/channel.h"
#include "service/usb_gadget.h"

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
