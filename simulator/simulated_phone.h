// A phone without hardware: boots the unmodified server in a root directory of its own and answers for the
// phone's kernel. Make it, furnish its files and models, Boot it, talk to it over HostPort, look at the
// journal, the files and the models. Everything here may be called from any thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "posix/file_descriptor.h"
#include "simulator/phone/console.h"
#include "simulator/phone/device_model.h"
#include "simulator/phone/faults.h"
#include "simulator/phone/journal.h"
#include "simulator/phone/poll_loop.h"
#include "simulator/phone/root_directory.h"
#include "simulator/phone/server_program.h"
#include "simulator/supervisor/guardian.h"
#include "simulator/supervisor/limits.h"

namespace simulator {

// Files of the phone with their contents.
using KeptFiles = std::map<std::string, std::string>;

struct PhoneOptions {
  std::filesystem::path server;               // empty: a phone without the server
  std::vector<std::string> server_arguments;  // after its name
  std::filesystem::path sysroot;              // of an ARM server's libraries; empty: the ARM compiler's
  std::filesystem::path state_directory;      // empty: the phone's files go with it
  bool instant_sleeps = false;                // sleeps of the phone's programs take no time
  bool echo_console = false;                  // the server's output also goes to our standard output
  std::vector<std::string> environment;       // "NAME=value" for the server, beside the phone's own
  std::string host_port_link;                 // a symbolic link to the host's end of the serial port
  KeptFiles kept_files;                       // what flash and card of the phone before held
  PhoneLimits limits;                         // above one of them the phone ends
};

struct PhoneEnd {
  enum class Reason { ServerExited, ServerKilled, PoweredOff, Stopped, OverLimit, PowerCut };
  Reason reason;
  int status = 0;        // the server's exit status, or the signal that killed it
  std::string excess{};  // of OverLimit: what the phone had too much of

  std::string Text() const;  // "server ended with status 247"
};

class SystemCalls;

class SimulatedPhone {
 public:
  explicit SimulatedPhone(PhoneOptions options);
  ~SimulatedPhone();  // stops it and leaves nothing behind
  SimulatedPhone(const SimulatedPhone&) = delete;
  SimulatedPhone& operator=(const SimulatedPhone&) = delete;

  // Starts the server. The phone serves itself from here on.
  void Boot();
  // Ends every process of the phone at once, as taking out the battery does.
  void Stop();
  // The same, as a fault that cuts the power does it.
  void CutPower();
  // What stays in flash and on the card when the battery is out. Only when the phone has ended.
  KeptFiles TakeKeptFiles() const;
  bool IsRunning() const;
  // Waits for the phone's end. Returns nothing if the phone still runs after the time.
  std::optional<PhoneEnd> WaitForEnd(std::chrono::milliseconds time_out) const;
  // Called once on the loop's thread when the phone has ended.
  void SetEnded(std::function<void(const PhoneEnd&)> ended);

  Journal& GetJournal() {
    return journal_;
  }
  Faults& GetFaults() {
    return faults_;
  }
  RootDirectory& Root() {
    return root_;
  }
  // The path of the terminal device that is the host's end of the phone's USB serial port.
  std::string HostPort() const;
  pid_t ServerProcess() const;
  // What the kernel holds the program to that was started last; none before the first.
  std::optional<Confinement> GetConfinement() const;
  std::string ConsoleText() const {  // all that the server printed
    return console_.Text();
  }
  void SetInstantSleeps(bool instant);

  // Does `work(Model&)` on the loop's thread, where models live, and returns its result.
  template <typename Model, typename Work>
  auto With(Work work) -> std::invoke_result_t<Work, Model&> {
    Model& model = Find<Model>();
    if constexpr (std::is_void_v<std::invoke_result_t<Work, Model&>>) {
      OnLoop([&] { work(model); });
    } else {
      std::optional<std::invoke_result_t<Work, Model&>> result;
      OnLoop([&] { result.emplace(work(model)); });
      return std::move(*result);
    }
  }
  void OnLoop(const std::function<void()>& work) {
    loop_.Run(work);
  }

  // Runs a model's command or one of the phone's own (fault, missing, present, clear-faults) from its words.
  // Throws std::invalid_argument with a sentence.
  std::string Command(const std::vector<std::string>& words);
  std::vector<ModelCommand> Commands();

  // Starts a command line beside the server, its output on the console. Only while the phone runs.
  void RunShell(const std::string& command);
  // Starts an interactive shell in the phone and returns the controlling end of its terminal.
  posix::FileDescriptor OpenShell();

  // A device goes missing: its path is gone until it is put back.
  void TakeAway(const std::string& path);
  void PutBack(const std::string& path);

 private:
  template <typename Model>
  Model& Find() const {
    for (const auto& model : models_) {
      if (auto* found = dynamic_cast<Model*>(model.get())) return *found;
    }
    throw std::logic_error("the phone has no such model");
  }

  void Furnish();
  void LinkHostPort();
  StartedProgram StartProgram(const ProgramStart& program);
  StartedProgram StartOnConsole(const std::string& path, const std::vector<std::string>& arguments);
  void StartServer();
  void TakeEnds();
  void PowerOff();
  void EndAtOnce(PhoneEnd::Reason reason);
  std::vector<pid_t> RunningProcesses(const std::string& name) const;
  void WatchLimits();
  void WatchTasks();
  void EndIfOver(const std::string& excess);
  void End(PhoneEnd::Reason reason, int status, const std::string& excess = {});

  PhoneOptions options_;
  ServerStart server_start_;
  RootDirectory root_;
  Journal journal_;
  Faults faults_;
  PollLoop loop_;
  PhoneServices services_;
  Console console_;
  std::unique_ptr<SystemCalls> calls_;
  std::vector<std::unique_ptr<DeviceModel>> models_;

  std::unique_ptr<Guardian> guardian_;
  PollLoop::Id guardian_watch_ = 0;
  LimitWatch limit_watch_;
  uint32_t server_number_ = 0;
  bool watches_tasks_ = false;
  bool powered_off_ = false;

  mutable std::mutex mutex_;
  mutable std::condition_variable ended_;
  pid_t server_process_ = 0;
  std::optional<Confinement> confinement_;
  bool running_ = false;
  std::optional<PhoneEnd> end_;
  std::function<void(const PhoneEnd&)> on_end_;
};

}  // namespace simulator
