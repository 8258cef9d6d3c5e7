// Emulates the phone's media player /root/wavplayer.elf: a program that takes a file and two numbers, ends
// with status 1 when there is no such file, and else stays until it is killed. Its clips come with it.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "simulator/phone/device_model.h"

namespace simulator {

class MediaPlayer : public DeviceModel {
 public:
  struct Start {
    std::vector<std::string> arguments;  // behind the player's name
    pid_t process;                       // by the PC's number
  };
  struct State {
    std::vector<Start> starts;  // all since the phone was made, ended or not
  };

  using DeviceModel::DeviceModel;
  std::vector<std::string> Paths() const override;
  void Furnish(RootDirectory& root) override;
  int Exec(const ExecCall& call) override;
  std::vector<ModelCommand> Commands() override;

  std::vector<pid_t> Playing() const;

  State state;
};

}  // namespace simulator
