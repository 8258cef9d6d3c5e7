// The phone's user interface: the program Launcher.elf, which waits for events that never come. A phone that
// only serves tests does without it until it is started.
#pragma once

#include <string>
#include <vector>

#include "simulator/phone/device_model.h"

namespace simulator {

class Launcher : public DeviceModel {
 public:
  using DeviceModel::DeviceModel;
  std::vector<std::string> Paths() const override;
  void Furnish(RootDirectory& root) override;
  std::vector<ModelCommand> Commands() override;

  void Start();
  size_t Running() const;  // so many of it
};

}  // namespace simulator
