// Emulates /proc/vantu_pm/prohibit_standby of the power management: the phone does not enter standby while
// any program holds it open.
#pragma once

#include "simulator/phone/text_control.h"

namespace simulator {

class Standby : public TextDevice {
 public:
  static constexpr const char* PATH = "/proc/vantu_pm/prohibit_standby";

  explicit Standby(PhoneServices& phone) : TextDevice(phone, {{PATH, "0"}}) {}
};

}  // namespace simulator
