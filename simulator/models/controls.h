// What programs switch by name: the GPIO driver's lines, and the controls of drivers that show as text files
// in /proc.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "simulator/phone/device_descriptors.h"
#include "simulator/phone/device_model.h"

namespace simulator {

// Emulates the GPIO driver /dev/misc/omap730_gpio: output lines that are switched by requests without
// argument, the modem's state word, and the flag that ends a stand-alone modem pass-through.
class Gpio : public DeviceModel {
 public:
  struct State {
    std::map<std::string, bool> lines;  // by name: "audio-a", "audio-b", "modem-1", "modem-2", "modem-3"
    int32_t modem_state = 1;
    uint32_t stop_flag = 0;
  };
  State state;

  explicit Gpio(PhoneServices& phone);

  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  RequestAnswer Request(DriverRequest& request) override;
  std::vector<ModelCommand> Commands() override;

 private:
  std::string Show() const;
  std::string Set(const std::vector<std::string>& words);

  DeviceMemory memory_{0};
};

// The controls that show as text files. Each returns its value when it is read and takes a value with each
// write.
class TextControls : public DeviceModel {
 public:
  explicit TextControls(PhoneServices& phone);
  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;

  // The value of a control, without white space around it.
  const std::string& Value(const std::string& path) const;
  const std::string& BacklightLevel() const;
  bool MotorRuns() const;
  // Some program has the control open that keeps the phone from going into standby.
  bool StandbyHeld() const;
  // The number of the LED's colour, "0" while the LED is forced off.
  std::string LedColour() const;

 private:
  void Take(const std::string& path, std::string text);

  std::map<std::string, std::string> values_;             // by path
  std::vector<std::weak_ptr<const void>> standby_holds_;  // one for each opening, until it is closed
};

}  // namespace simulator
