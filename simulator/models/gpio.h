// Emulates the GPIO driver /dev/misc/omap730_gpio: output lines that are switched by requests without
// argument, the modem's state word, and the flag that ends a stand-alone modem pass-through.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "simulator/phone/device_model.h"
#include "simulator/supervisor/device_descriptors.h"

namespace simulator {

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

}  // namespace simulator
