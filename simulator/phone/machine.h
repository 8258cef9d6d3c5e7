// The parts of a simulated phone and how they work together; SimulatedPhone is its outside.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "simulator/phone/console.h"
#include "simulator/phone/device_model.h"
#include "simulator/phone/faults.h"
#include "simulator/phone/journal.h"
#include "simulator/phone/root_directory.h"
#include "simulator/phone/simulated_phone.h"
#include "simulator/supervisor/guardian.h"
#include "simulator/supervisor/poll_loop.h"
#include "simulator/supervisor/system_calls.h"

namespace simulator {

class Machine {
 public:
  explicit Machine(PhoneOptions phone_options);
  ~Machine();

  void Boot();
  void Stop();
  bool IsRunning() const;
  std::optional<PhoneEnd> WaitForEnd(std::chrono::milliseconds time_out);
  void SetEnded(std::function<void(const PhoneEnd&)> ended);
  std::string HostPortPath() const;
  pid_t ServerProcess() const;
  std::string Command(const std::vector<std::string>& words);
  std::vector<ModelCommand> Commands();
  void RunShell(const std::string& command);
  posix::FileDescriptor OpenShell();
  void TakeAway(const std::string& path);
  void PutBack(const std::string& path);

  PhoneOptions options;
  RootDirectory root;
  Journal journal;
  Faults faults;
  PollLoop loop;
  PhoneServices services;
  Console console;
  SystemCalls calls;
  std::vector<std::unique_ptr<DeviceModel>> models;

 private:
  void Furnish();
  void StartServer();
  StartedProgram StartProgram(const ProgramStart& program);
  StartedProgram StartOnConsole(const std::string& path, const std::vector<std::string>& arguments);
  void TakeEnds();
  void PowerOff();
  void End(PhoneEnd::Reason reason, int status);
  std::string AddFault(const std::vector<std::string>& words);
  std::string OnPath(const std::vector<std::string>& words, void (Machine::*work)(const std::string&));
  std::string SetWaiting(const std::vector<std::string>& words);

  std::unique_ptr<Guardian> guardian_;
  PollLoop::Id guardian_watch_ = 0;
  uint32_t server_number_ = 0;
  bool powered_off_ = false;

  mutable std::mutex mutex_;
  std::condition_variable ended_;
  pid_t server_process_ = 0;
  bool running_ = false;
  std::optional<PhoneEnd> end_;
  std::function<void(const PhoneEnd&)> on_end_;
};

}  // namespace simulator
