// Emulates the vibration motor's control /proc/gpio/motor: 1 runs it, 0 stops it.
#pragma once

#include "simulator/phone/text_control.h"

namespace simulator {

class Motor : public TextDevice {
 public:
  explicit Motor(PhoneServices& phone) : TextDevice(phone, {{PATH, "0"}}) {}
  bool Runs() {
    return Control(PATH).Value() != "0";
  }

 private:
  static constexpr const char* PATH = "/proc/gpio/motor";
};

}  // namespace simulator
