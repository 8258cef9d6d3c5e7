// The devices that every system has: the PC's own are as good as any.
#pragma once

#include "simulator/phone/device_model.h"

namespace simulator {

class StandardDevices : public DeviceModel {
 public:
  using DeviceModel::DeviceModel;

  std::vector<std::string> Paths() const override;
  OpenAnswer Open(const OpenCall& call) override;
};

}  // namespace simulator
