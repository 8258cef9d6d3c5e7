#include "simulator/phone/machine.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "simulator/models/host_port.h"
#include "simulator/models/model_table.h"
#include "simulator/phone/factory_files.h"
#include "simulator/phone/userland.h"
#include "simulator/supervisor/phone_processes.h"

namespace simulator {
namespace {

constexpr const char* SERVER_PATH = "/usr/sbin/phonetestd";
// How long the programs have to end by themselves when the phone is powered off.
constexpr auto POWER_OFF_TIME = std::chrono::seconds(3);
constexpr const char* TAKEN_AWAY = "/.taken-away";

std::vector<std::string> Environment(const std::vector<std::string>& added) {
  std::vector<std::string> environment = {"PATH=/sbin:/usr/sbin:/bin:/usr/bin", "HOME=/root", "USER=root",
                                          "TERM=linux"};
  for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
    if (const char* value = getenv(name)) environment.push_back(fmt::format("{}={}", name, value));
  }
  environment.insert(environment.end(), added.begin(), added.end());
  return environment;
}

}  // namespace

std::string PhoneEnd::Text() const {
  switch (reason) {
    case Reason::ServerExited:
      return fmt::format("server ended with status {}", status);
    case Reason::ServerKilled:
      return fmt::format("server killed by signal {} ({})", status, strsignal(status));
    case Reason::PoweredOff:
      return "powered off";
    case Reason::Stopped:
      break;
  }
  return "stopped";
}

Machine::Machine(PhoneOptions phone_options)
    : options(std::move(phone_options)),
      root(options.state_directory),
      services{root,
               loop,
               journal,
               [this] { PowerOff(); },
               [this](const std::string& name) { return ProcessesNamed(root.Path(), name); },
               [this](const std::string& path) {
                 StartOnConsole(path, {std::filesystem::path(path).filename()});
               }},
      console(loop, journal, options.echo_console),
      calls(services, faults),
      models(MakeModels(services)) {
  calls.SetInstantSleeps(options.instant_sleeps);
  calls.SetModels(models);
  Furnish();
}

Machine::~Machine() {
  loop.Run([this] {
    loop.Unwatch(guardian_watch_);
    guardian_.reset();
  });
  loop.Stop();
}

void Machine::Furnish() {
  PutUserland(root);
  PutFactoryFiles(root);
  if (!options.server.empty()) root.CopyProgramIn(options.server, SERVER_PATH);
  for (const auto& model : models) {
    model->Furnish(root);
    for (const std::string& path : model->Paths()) root.PutStandIn(path);
  }
}

void Machine::Boot() {
  if (!options.host_port_link.empty()) {
    unlink(options.host_port_link.c_str());
    if (symlink(HostPortPath().c_str(), options.host_port_link.c_str()) != 0) {
      throw std::system_error(errno, std::generic_category(), options.host_port_link);
    }
  }
  // The guardian is forked before the loop's thread is there.
  guardian_ = std::make_unique<Guardian>(root.Path(), root.IsTemporary(), options.host_port_link);
  root.LeaveRemovalToGuardian();
  guardian_watch_ = loop.Watch(guardian_->Descriptor(), POLLIN, [this](short) { TakeEnds(); });
  if (!options.server.empty()) StartServer();
  {
    const std::lock_guard lock(mutex_);
    running_ = true;
  }
  loop.Start();
}

StartedProgram Machine::StartProgram(const ProgramStart& program) {
  StartedProgram started = guardian_->Start(program);
  calls.Serve(std::move(started.listener));
  if (guardian_->HasEnd()) loop.Post([this] { TakeEnds(); });
  return started;
}

// A program without input, whose output is the console's.
StartedProgram Machine::StartOnConsole(const std::string& path, const std::vector<std::string>& arguments) {
  const posix::FileDescriptor input(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const posix::FileDescriptor output = console.NewOutput("stdout");
  const posix::FileDescriptor errors = console.NewOutput("stderr");
  return StartProgram(
      {path, arguments, Environment(options.environment), {input.Get(), output.Get(), errors.Get()}});
}

void Machine::StartServer() {
  std::vector<std::string> arguments = {"phonetestd"};
  arguments.insert(arguments.end(), options.server_arguments.begin(), options.server_arguments.end());
  const StartedProgram server = StartOnConsole(SERVER_PATH, arguments);
  server_number_ = server.number;
  const std::lock_guard lock(mutex_);
  server_process_ = server.process;
}

void Machine::RunShell(const std::string& command) {
  loop.Run([&] { StartOnConsole("/bin/sh", {"sh", "-c", command}); });
}

void Machine::TakeEnds() {
  do {
    const std::optional<EndedProgram> end = guardian_->TakeEnd();
    if (!end) {
      loop.Unwatch(guardian_watch_);
      guardian_->Finish();
      return End(PhoneEnd::Reason::ServerKilled, SIGKILL);
    }
    if (end->number != server_number_) continue;
    loop.ServeThrough(PollLoop::Turn::Output);
    guardian_->KillAll();
    if (WIFSIGNALED(end->status)) {
      End(PhoneEnd::Reason::ServerKilled, WTERMSIG(end->status));
    } else {
      End(PhoneEnd::Reason::ServerExited, WEXITSTATUS(end->status));
    }
  } while (guardian_->HasEnd());
}

void Machine::PowerOff() {
  if (std::exchange(powered_off_, true)) return;
  journal.Add({.kind = JournalKind::Event, .text = "power off"});
  loop.After(POWER_OFF_TIME, [this] {
    if (!IsRunning()) return;
    guardian_->KillAll();
    End(PhoneEnd::Reason::PoweredOff, 0);
  });
}

void Machine::End(PhoneEnd::Reason reason, int status) {
  if (powered_off_) reason = PhoneEnd::Reason::PoweredOff;
  const PhoneEnd end = {reason, status};
  std::function<void(const PhoneEnd&)> on_end;
  {
    const std::lock_guard lock(mutex_);
    if (!running_) return;
    running_ = false;
    on_end = on_end_;
  }
  journal.Add({.kind = JournalKind::Event, .text = end.Text()});
  {
    const std::lock_guard lock(mutex_);
    end_ = end;
    ended_.notify_all();
  }
  if (on_end) on_end(end);
}

void Machine::Stop() {
  loop.Run([this] {
    if (!IsRunning()) return;
    guardian_->KillAll();
    End(PhoneEnd::Reason::Stopped, 0);
  });
}

bool Machine::IsRunning() const {
  const std::lock_guard lock(mutex_);
  return running_;
}

std::optional<PhoneEnd> Machine::WaitForEnd(std::chrono::milliseconds time_out) {
  std::unique_lock lock(mutex_);
  ended_.wait_for(lock, time_out, [this] { return end_.has_value(); });
  return end_;
}

void Machine::SetEnded(std::function<void(const PhoneEnd&)> ended) {
  const std::lock_guard lock(mutex_);
  on_end_ = std::move(ended);
}

std::string Machine::HostPortPath() const {
  for (const auto& model : models) {
    if (auto* port = dynamic_cast<HostPort*>(model.get())) return port->HostSide().DevicePath();
  }
  return {};
}

pid_t Machine::ServerProcess() const {
  const std::lock_guard lock(mutex_);
  return server_process_;
}

posix::FileDescriptor Machine::OpenShell() {
  posix::FileDescriptor master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!master.IsOpen() || unlockpt(master.Get()) != 0) {
    throw std::system_error(errno, std::generic_category(), "pseudo-terminal");
  }
  const posix::FileDescriptor terminal(ioctl(master.Get(), TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC));
  ProgramStart program = {"/bin/sh", {"sh", "-i"}, Environment({"PS1=phone:$PWD# "}), {}, true};
  for (int& descriptor : program.standard) descriptor = terminal.Get();
  loop.Run([&] { StartProgram(program); });
  return master;
}

void Machine::TakeAway(const std::string& path) {
  const std::string kept = TAKEN_AWAY + path;
  root.MakeDirectory(std::filesystem::path(kept).parent_path().string());
  std::filesystem::rename(root.Outside(path), root.Outside(kept));
}

void Machine::PutBack(const std::string& path) {
  std::filesystem::rename(root.Outside(TAKEN_AWAY + path), root.Outside(path));
}

}  // namespace simulator
