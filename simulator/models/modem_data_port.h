// Emulates the modem's data port /dev/csmi_tty/7: a serial line whose other end is a terminal device of the
// PC, where a test or a person with any terminal program is the modem.
#pragma once

#include <string>
#include <vector>

#include "simulator/phone/device_model.h"
#include "simulator/supervisor/device_descriptors.h"

namespace simulator {

class ModemDataPort : public DeviceModel {
 public:
  struct State {
    // A port opened from now on is at its end: always readable, without a byte. It still takes bytes.
    bool input_ended = false;
  };

  explicit ModemDataPort(PhoneServices& phone);
  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  std::vector<ModelCommand> Commands() override;

  SerialLine& PhoneSide() {
    return relay_.First();
  }
  SerialLine& ModemSide() {
    return relay_.Second();
  }

  State state;

 private:
  OpenAnswer OpenAtItsEnd(const OpenCall& call);

  SerialRelay relay_;
};

}  // namespace simulator
