// Emulates the LCD's backlight control /proc/backlight/lcd: takes a level as decimal text.
#pragma once

#include "simulator/phone/text_control.h"

namespace simulator {

class Backlight : public TextDevice {
 public:
  explicit Backlight(PhoneServices& phone) : TextDevice(phone, {{PATH, "100"}}) {}
  const std::string& Level() {
    return Control(PATH).Value();
  }

 private:
  static constexpr const char* PATH = "/proc/backlight/lcd";
};

}  // namespace simulator
