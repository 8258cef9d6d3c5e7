// The serial ports whose other end is a terminal device of the PC.
#pragma once

#include <string>
#include <vector>

#include "simulator/models/exchange_log.h"
#include "simulator/phone/device_descriptors.h"
#include "simulator/phone/device_model.h"

namespace simulator {

// Emulates the phone's end of the USB serial gadget, /dev/usb/tts/0, and the cable to the host, whose end is
// a terminal device of the PC.
class HostPort : public DeviceModel {
 public:
  struct State {
    bool plugged = true;  // without the cable the port cannot be opened
  };

  explicit HostPort(PhoneServices& phone);

  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  std::vector<ModelCommand> Commands() override;

  SerialLine& PhoneSide() {
    return relay_.First();
  }
  SerialLine& HostSide() {
    return relay_.Second();
  }
  // Pulls the cable out of the phone: every descriptor that the phone has of it is hung up.
  void Unplug() {
    state.plugged = false;
    exchanges_.Restart();
    PhoneSide().HangUp();
  }
  void Plug() {
    state.plugged = true;
  }
  void Replug() {
    Unplug();
    Plug();
  }

  State state;

 private:
  ExchangeLog exchanges_;
  SerialRelay relay_;
};

// Emulates the modem's data port /dev/csmi_tty/7: a serial line whose other end is a terminal device of the
// PC, where a test or a person with any terminal program is the modem.
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
