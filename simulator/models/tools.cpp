#include "simulator/models/tools.h"

#include <signal.h>

#include <cctype>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "simulator/phone/root_directory.h"
#include "simulator/supervisor/do_nothing_program.h"

namespace simulator {
namespace {

// A signal by number or name, without its dash: "9", "KILL", "SIGKILL".
int SignalNumber(std::string_view name) {
  if (!name.empty() && isdigit(static_cast<unsigned char>(name[0]))) return std::stoi(std::string(name));
  if (name.starts_with("SIG")) name.remove_prefix(3);
  for (int number = 1; number < NSIG; ++number) {
    const char* abbreviation = sigabbrev_np(number);
    if (abbreviation != nullptr && name == abbreviation) return number;
  }
  return SIGTERM;
}

}  // namespace

Tools::Tools(PhoneServices& phone) : DeviceModel(phone) {
  state.modules = {"omap_bi", "net_fd", "serial_fd", "usbdcore"};
}

std::vector<std::string> Tools::Paths() const {
  return {"/sbin/insmod", "/sbin/rmmod",  "/sbin/ifconfig",  "/sbin/poweroff",
          "/sbin/halt",   "/sbin/reboot", "/usr/bin/killall"};
}

void Tools::Furnish(RootDirectory& root) {
  for (const std::string& path : Paths()) root.PutFile(path, DO_NOTHING_PROGRAM, 0755);
}

int Tools::Exec(const ExecCall& call) {
  const std::string tool = std::filesystem::path(call.path).filename();
  if (tool == "killall") {
    KillAll(call.arguments);
  } else if (tool == "insmod" && call.arguments.size() > 1) {
    state.modules.insert(std::filesystem::path(call.arguments[1]).stem());
  } else if (tool == "rmmod" && call.arguments.size() > 1) {
    state.modules.erase(call.arguments[1]);
  } else if (tool == "poweroff" || tool == "halt" || tool == "reboot") {
    phone_.power_off();
  }
  return 0;
}

void Tools::KillAll(const std::vector<std::string>& arguments) {
  int signal = SIGTERM;
  for (size_t index = 1; index < arguments.size(); ++index) {
    const std::string& word = arguments[index];
    if (word.starts_with('-')) {
      signal = SignalNumber(word.substr(1));
      continue;
    }
    for (pid_t process : phone_.processes_named(word)) kill(process, signal);
  }
}

}  // namespace simulator
