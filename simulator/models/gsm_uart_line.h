// Emulates the control /proc/gpio/gsm_uart_rx of the receive line of the modem's serial port.
#pragma once

#include "simulator/phone/text_control.h"

namespace simulator {

class GsmUartLine : public TextDevice {
 public:
  explicit GsmUartLine(PhoneServices& phone) : TextDevice(phone, {{PATH, "0"}}) {}
  const std::string& Level() {
    return Control(PATH).Value();
  }

 private:
  static constexpr const char* PATH = "/proc/gpio/gsm_uart_rx";
};

}  // namespace simulator
