// Emulates the phone's end of the USB serial gadget, /dev/usb/tts/0, and the cable to the host, whose end is
// a terminal device of the PC.
#pragma once

#include <string>

#include "simulator/phone/device_model.h"
#include "simulator/supervisor/device_descriptors.h"

namespace simulator {

class HostPort : public DeviceModel {
 public:
  explicit HostPort(PhoneServices& phone) : DeviceModel(phone), relay_(phone.loop) {}

  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  std::vector<ModelCommand> Commands() override;

  SerialLine& PhoneSide() {
    return relay_.First();
  }
  SerialLine& HostSide() {
    return relay_.Second();
  }
  // Draws the cable out of the phone and puts it back: what the phone holds open is at its end.
  void Replug() {
    PhoneSide().HangUp();
  }

 private:
  SerialRelay relay_;
};

}  // namespace simulator
