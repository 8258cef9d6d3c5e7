// The memory card: the kernel's list of cards, /proc/bus/mmc/device, and the card's file system at /mnt/fat.
#pragma once

#include <string>
#include <vector>

#include "simulator/phone/device_model.h"

namespace simulator {

class MemoryCard : public DeviceModel {
 public:
  struct State {
    bool driver = true;    // without it the kernel has no list
    bool inserted = true;  // without a card the list has no serial number
    bool read_only = false;
    std::string name = "SD256";
    std::string serial_number = "0x1a2b3c4d";  // as the list shows it
  };

  using DeviceModel::DeviceModel;
  std::vector<std::string> Paths() const override;
  std::vector<std::string> Folders() const override;
  void Furnish(RootDirectory& root) override;
  OpenAnswer Open(const OpenCall& call) override;
  std::vector<ModelCommand> Commands() override;

  State state;

 private:
  std::string CardList() const;
};

}  // namespace simulator
