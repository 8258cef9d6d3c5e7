// The phone's programs: the system's tools, the user interface and the media player.
#pragma once

#include <sys/types.h>

#include <deque>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/phone/device_model.h"

namespace simulator {

// Emulates the tools that reach for the phone's kernel: modules, network interface, power, and killall, which
// finds processes by name. Each is a program that does nothing; what it was asked for happens here.
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

// The phone's user interface: the program Launcher.elf, which waits for events that never come. A phone that
// only serves tests does without it until it is started.
class Launcher : public DeviceModel {
 public:
  using DeviceModel::DeviceModel;
  std::vector<std::string> Paths() const override;
  void Furnish(RootDirectory& root) override;
  std::vector<ModelCommand> Commands() override;

  void Start();
  size_t Running() const;  // so many of it
};

// Emulates the phone's media player /root/wavplayer.elf: a program that takes a file and two numbers, ends
// with status 1 if there is no such file, and otherwise stays until it is killed. Its clips come with it.
class MediaPlayer : public DeviceModel {
 public:
  struct Start {
    std::vector<std::string> arguments;  // after the player's name
    pid_t process;                       // by the PC's number
  };
  static constexpr size_t MOST_STARTS = 1000;
  struct State {
    std::deque<Start> starts;  // the newest MOST_STARTS since the phone was made, ended or not
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
