// Emulates the tools that reach for the phone's kernel: modules, network interface, power, and killall, which
// finds processes by name. Each is a program that does nothing; what it was asked for happens here.
#pragma once

#include <set>
#include <string>

#include "simulator/phone/device_model.h"

namespace simulator {

class Tools : public DeviceModel {
 public:
  struct State {
    std::set<std::string> modules;  // loaded, without ".o"
  };
  State state;

  explicit Tools(PhoneServices& phone);

  std::vector<std::string> Paths() const override;
  void Furnish(RootDirectory& root) override;
  int Exec(const ExecCall& call) override;

 private:
  void KillAll(const std::vector<std::string>& arguments);
};

}  // namespace simulator
