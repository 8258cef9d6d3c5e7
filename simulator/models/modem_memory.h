// /dev/mem, as far as the modem's memory reaches: all zeros but for the modem's file-system image at its
// physical address.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/phone/device_model.h"

namespace simulator {

constexpr uint64_t MODEM_IMAGE_ADDRESS = 0x13F0E000;
constexpr uint32_t MODEM_IMAGE_SIZE = 80 * 1024;

// Each piece of 1024 bytes begins with a text of its own number, and no two are alike.
std::string ModemImage();

class ModemMemory : public DeviceModel {
 public:
  using DeviceModel::DeviceModel;
  std::vector<std::string> Paths() const override {
    return {"/dev/mem"};
  }
  void Furnish(RootDirectory& root) override;
};

}  // namespace simulator
