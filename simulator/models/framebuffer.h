// Emulates the LCD's framebuffer /dev/fb/0: 240 x 320 pixels, RGB565, rows from top to bottom, mapped or
// written.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/phone/device_model.h"
#include "simulator/supervisor/device_descriptors.h"

namespace simulator {

class Framebuffer : public DeviceModel {
 public:
  static constexpr unsigned WIDTH = 240;
  static constexpr unsigned HEIGHT = 320;

  struct State {
    bool refuses_mapping = false;  // opens, but mmap fails
  };
  State state;

  using DeviceModel::DeviceModel;

  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
  std::vector<ModelCommand> Commands() override;

  // All pixels as they are now, row after row.
  std::vector<uint16_t> Pixels() const;
  std::string Png() const;  // the bytes of a PNG file

 private:
  DeviceMemory memory_{size_t{WIDTH} * HEIGHT * 2};
};

}  // namespace simulator
