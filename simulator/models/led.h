// Emulates the coloured LED's controls below /proc/cLED_wlpg.
#pragma once

#include "simulator/phone/text_control.h"

namespace simulator {

class Led : public TextDevice {
 public:
  explicit Led(PhoneServices& phone) : TextDevice(phone, {{FORCE_OFF, "0"}, {TIMING, "0"}, {COLOUR, "0"}}) {}
  // The colour's number, "0" while the LED is forced off.
  std::string Colour() {
    return Control(FORCE_OFF).Value() == "0" ? Control(COLOUR).Value() : "0";
  }

 private:
  static constexpr const char* FORCE_OFF = "/proc/cLED_wlpg/force_led_off";
  static constexpr const char* TIMING = "/proc/cLED_wlpg/timing";
  static constexpr const char* COLOUR = "/proc/cLED_wlpg/color";
};

}  // namespace simulator
