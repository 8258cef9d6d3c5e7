// What of the modem shows in its driver and in memory. Its serial ports are in modem_at_port.h and
// serial_ports.h.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "simulator/phone/device_descriptors.h"
#include "simulator/phone/device_model.h"

namespace simulator {

// Emulates the modem driver's control port /dev/csmi_tty/1. Its requests are bare numbers, each with a record
// of 16 bytes that begins with the same number and takes the reply: 5 passes a control value, 17 reads six
// values, 67 reads the line status byte.
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

constexpr uint64_t MODEM_IMAGE_ADDRESS = 0x13F0E000;
constexpr uint32_t MODEM_IMAGE_SIZE = 80 * 1024;

// Each piece of 1024 bytes begins with a text of its own number, and no two are alike.
std::string ModemImage();

// /dev/mem, as far as the modem's memory reaches: all zeros except the modem's file-system image at its
// physical address.
class ModemMemory : public DeviceModel {
 public:
  using DeviceModel::DeviceModel;
  std::vector<std::string> Paths() const override {
    return {"/dev/mem"};
  }
  void Furnish(RootDirectory& root) override;
};

}  // namespace simulator
