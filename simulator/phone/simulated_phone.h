// A phone without hardware: boots the unmodified server in a root directory of its own and answers for the
// phone's kernel. Make it, furnish its files and models, Boot it, talk to it over HostPort, look at the
// journal, the files and the models. Everything here may be called from any thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "posix/file_descriptor.h"
#include "simulator/phone/device_model.h"
#include "simulator/phone/faults.h"
#include "simulator/phone/journal.h"
#include "simulator/phone/root_directory.h"

namespace simulator {

struct PhoneOptions {
  std::filesystem::path server;               // empty: a phone without the server
  std::vector<std::string> server_arguments;  // behind its name
  std::filesystem::path state_directory;      // empty: the phone's files go with it
  bool instant_sleeps = false;                // sleeps of the phone's programs take no time
  bool echo_console = false;                  // the server's output also goes to our standard output
  std::vector<std::string> environment;       // "NAME=value" for the server, beside the phone's own
  std::string host_port_link;                 // a symbolic link to the host's end of the serial port
};

struct PhoneEnd {
  enum class Reason { ServerExited, ServerKilled, PoweredOff, Stopped };
  Reason reason;
  int status = 0;  // the server's exit status, or the signal that killed it

  std::string Text() const;  // "server ended with status 247"
};

// The PC does not allow what the phone needs; the text is one sentence for the person who started it.
class CannotSimulate : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Machine;

class SimulatedPhone {
 public:
  explicit SimulatedPhone(PhoneOptions options);
  ~SimulatedPhone();  // stops it and leaves nothing behind
  SimulatedPhone(const SimulatedPhone&) = delete;
  SimulatedPhone& operator=(const SimulatedPhone&) = delete;

  // Starts the server. The phone serves itself from here on.
  void Boot();
  // Ends every process of the phone at once, as drawing the battery does.
  void Stop();
  bool IsRunning() const;
  // How the phone ended, waited for; nothing when it still runs then.
  std::optional<PhoneEnd> WaitForEnd(std::chrono::milliseconds time_out);
  // Called once on the loop's thread when the phone has ended.
  void SetEnded(std::function<void(const PhoneEnd&)> ended);

  Journal& GetJournal();
  Faults& GetFaults();
  RootDirectory& Root();
  // The path of the terminal device that is the host's end of the phone's USB serial port.
  std::string HostPort() const;
  pid_t ServerProcess() const;
  std::string ConsoleText() const;  // all that the server printed
  void SetInstantSleeps(bool instant);

  // Does `work(Model&)` on the loop's thread, where models live, and gives its result.
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
  void OnLoop(const std::function<void()>& work);

  // Runs a model's command or one of the phone's own (fault, missing, present, faults-clear) from its words.
  // Throws std::invalid_argument with a sentence.
  std::string Command(const std::vector<std::string>& words);
  std::vector<ModelCommand> Commands();

  // Starts a command line beside the server, its output on the console. Only while the phone runs.
  void RunShell(const std::string& command);
  // An interactive shell in the phone; what it gives is the controlling end of its terminal.
  posix::FileDescriptor OpenShell();

  // A device goes missing: its path is gone until it is put back.
  void TakeAway(const std::string& path);
  void PutBack(const std::string& path);

 private:
  template <typename Model>
  Model& Find() {
    for (const auto& model : Models()) {
      if (auto* found = dynamic_cast<Model*>(model.get())) return *found;
    }
    throw std::logic_error("the phone has no such model");
  }
  const std::vector<std::unique_ptr<DeviceModel>>& Models() const;

  std::unique_ptr<Machine> machine_;
};

}  // namespace simulator
