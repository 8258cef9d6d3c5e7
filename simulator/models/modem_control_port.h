// Emulates the modem driver's control port /dev/csmi_tty/1. Its requests are bare numbers, each with a record
// of 16 bytes that begins with the same number and takes the reply: 5 passes a control value, 17 reads six
// values, 67 reads the line status byte.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "simulator/phone/device_model.h"
#include "simulator/supervisor/device_descriptors.h"

namespace simulator {

class ModemControlPort : public DeviceModel {
 public:
  static constexpr uint32_t CONTROL = 5;
  static constexpr uint32_t READ_VALUES = 17;
  static constexpr uint32_t READ_LINE_STATUS = 67;

  struct State {
    int control = -1;  // the value passed last, -1 for none
    std::array<uint16_t, 6> values = {4, 31, 262, 7, 1017, 42};
    uint8_t line_status = 0x2B;
    std::map<uint32_t, uint32_t> reply_codes;  // of a request, where it is not the right one
    std::map<uint32_t, int> results;           // of a request, where it is not 0
  };

  using DeviceModel::DeviceModel;
  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  RequestAnswer Request(DriverRequest& request) override;
  std::vector<ModelCommand> Commands() override;

  State state;

 private:
  std::string Show() const;
  std::string Set(const std::vector<std::string>& words);

  DeviceMemory memory_{0};
};

}  // namespace simulator
