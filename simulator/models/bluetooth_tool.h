// Emulates the Bluetooth test tool /root/bt_cit_test: a script that takes one of seven functions, refuses
// switches and values that are not exactly right, and prints results made from its arguments, or whatever the
// function's scenario says.
#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "simulator/phone/device_model.h"

namespace simulator {

class BluetoothTool : public DeviceModel {
 public:
  static constexpr int FUNCTIONS = 7;

  struct Scenario {
    enum class Shape {
      Normal,
      Short,   // the results end in the middle of a word
      Long,    // more than 255 characters follow them
      Pieces,  // in two writes, the delay between them
      None,    // prints nothing
    } shape = Shape::Normal;
    int status = 0;
    std::chrono::milliseconds delay{0};
    std::optional<std::string> output{};  // printed instead of results
  };

  static constexpr size_t MOST_CALLS = 20;
  static constexpr size_t MOST_PRINTED = 4096;
  struct ToolCall {
    std::string line;     // the command line
    std::string printed;  // so far
  };
  struct State {
    std::deque<ToolCall> calls;  // the newest ones
  };
  State state;

  using DeviceModel::DeviceModel;
  std::vector<std::string> Paths() const override;
  void Furnish(RootDirectory& root) override;
  int Exec(const ExecCall& call) override;
  std::vector<ModelCommand> Commands() override;

  void SetScenario(int function, const Scenario& scenario);
  void SetExecutable(bool executable);
  // With what they have printed until now.
  const std::deque<ToolCall>& Calls();

 private:
  // Moves what the newest call has printed from the phone's file to the state.
  void TakePrinted();
  std::string Command(const std::vector<std::string>& words);
};

}  // namespace simulator
