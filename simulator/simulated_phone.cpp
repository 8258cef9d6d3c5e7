#include "simulator/simulated_phone.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "simulator/models/flash.h"
#include "simulator/models/model_table.h"
#include "simulator/models/serial_ports.h"
#include "simulator/phone/emulator.h"
#include "simulator/phone/furnishing.h"
#include "simulator/phone_commands.h"
#include "simulator/supervisor/phone_processes.h"
#include "simulator/supervisor/system_calls.h"

namespace simulator {
namespace {

// How long the programs have to end by themselves when the phone is powered off.
constexpr auto POWER_OFF_TIME = std::chrono::seconds(3);
constexpr size_t MOST_KEPT_BYTES = 8 << 20;  // of one file
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
    case Reason::PowerCut:
      return "power cut";
    case Reason::OverLimit:
      return "ended: " + excess;
    case Reason::Stopped:
      break;
  }
  return "stopped";
}

SimulatedPhone::SimulatedPhone(PhoneOptions phone_options)
    : options_(std::move(phone_options)),
      root_(options_.state_directory),
      services_{root_,
                loop_,
                journal_,
                [this] { PowerOff(); },
                [this] { CutPower(); },
                [this](const std::string& name) { return RunningProcesses(name); },
                [this](const std::string& path) {
                  StartOnConsole(path, {std::filesystem::path(path).filename()});
                }},
      console_(loop_, journal_, options_.echo_console),
      calls_(std::make_unique<SystemCalls>(services_, faults_)),
      models_(MakeModels(services_)),
      limit_watch_(root_, options_.limits) {
  calls_->SetStarting([this] { EndIfOver(limit_watch_.LookAtStart(guardian_->Process())); });
  calls_->SetInstantSleeps(options_.instant_sleeps);
  calls_->SetModels(models_);
  Furnish();
}

SimulatedPhone::~SimulatedPhone() {
  loop_.Run([this] {
    loop_.Unwatch(guardian_watch_);
    guardian_.reset();
  });
  loop_.Stop();
}

void SimulatedPhone::Furnish() {
  PutUserland(root_);
  PutFactoryFiles(root_);
  if (!options_.server.empty()) server_start_ = PutServer(root_, options_.server, options_.sysroot);
  calls_->SetEmulated(server_start_.program == EMULATOR_PATH);
  for (const auto& [path, content] : options_.kept_files) root_.PutFileIfAbsent(path, content);
  for (const auto& model : models_) {
    model->Furnish(root_);
    for (const std::string& path : model->Paths()) root_.PutStandIn(path);
  }
}

void SimulatedPhone::Boot() {
  LinkHostPort();
  // The guardian is forked before the loop's thread is there.
  guardian_ = std::make_unique<Guardian>(root_.Path(), root_.IsTemporary(), root_.Lock(),
                                         options_.host_port_link, HostPort(), options_.limits);
  root_.LeaveRemovalToGuardian();
  guardian_watch_ = loop_.Watch(guardian_->Descriptor(), POLLIN, [this](short) { TakeEnds(); });
  if (!options_.server.empty()) StartServer();
  {
    const std::lock_guard lock(mutex_);
    running_ = true;
  }
  WatchLimits();
  loop_.Start();
}

void SimulatedPhone::LinkHostPort() {
  if (options_.host_port_link.empty()) return;
  const std::string& link = options_.host_port_link;
  // A link that a dead phone left leads to a terminal that is gone. Whatever else is there is someone's.
  std::error_code error;
  const std::string target = std::filesystem::read_symlink(link, error);
  if (target.starts_with("/dev/pts/") && !std::filesystem::exists(target)) unlink(link.c_str());
  if (symlink(HostPort().c_str(), link.c_str()) == 0) return;
  if (errno == EEXIST) throw CannotSimulate(link + " exists and is not a link of a phone that has ended.");
  posix::ThrowErrno(link);
}

StartedProgram SimulatedPhone::StartProgram(const ProgramStart& program) {
  StartedProgram started = guardian_->Start(program);
  if (started.confinement.tasks == TaskLimit::Counting && !std::exchange(watches_tasks_, true)) WatchTasks();
  {
    const std::lock_guard lock(mutex_);
    confinement_ = started.confinement;
  }
  calls_->Serve(std::move(started.listener));
  if (guardian_->HasEnd()) loop_.Post([this] { TakeEnds(); });
  return started;
}

// A program without input, whose output is the console's.
StartedProgram SimulatedPhone::StartOnConsole(const std::string& path,
                                              const std::vector<std::string>& arguments) {
  const posix::FileDescriptor input(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const posix::FileDescriptor output = console_.NewOutput("stdout");
  const posix::FileDescriptor errors = console_.NewOutput("stderr");
  return StartProgram(
      {path, arguments, Environment(options_.environment), {input.Get(), output.Get(), errors.Get()}});
}

void SimulatedPhone::StartServer() {
  std::vector<std::string> arguments = server_start_.arguments;
  arguments.insert(arguments.end(), options_.server_arguments.begin(), options_.server_arguments.end());
  const StartedProgram server = StartOnConsole(server_start_.program, arguments);
  server_number_ = server.number;
  const std::lock_guard lock(mutex_);
  server_process_ = server.process;
}

void SimulatedPhone::SetInstantSleeps(bool instant) {
  calls_->SetInstantSleeps(instant);
}

std::vector<ModelCommand> SimulatedPhone::Commands() {
  std::vector<ModelCommand> commands = PhoneCommands(*this);
  for (const auto& model : models_) {
    for (ModelCommand& command : model->Commands()) commands.push_back(std::move(command));
  }
  return commands;
}

std::string SimulatedPhone::Command(const std::vector<std::string>& words) {
  if (words.empty()) throw std::invalid_argument("A command is missing.");
  for (const ModelCommand& command : Commands()) {
    if (command.name != words[0]) continue;
    std::string answer;
    loop_.Run([&] { answer = command.run({words.begin() + 1, words.end()}); });
    return answer;
  }
  throw std::invalid_argument(fmt::format("The phone knows no command \"{}\".", words[0]));
}

void SimulatedPhone::RunShell(const std::string& command) {
  loop_.Run([&] { StartOnConsole("/bin/sh", {"sh", "-c", command}); });
}

void SimulatedPhone::TakeEnds() {
  do {
    const std::optional<EndedProgram> end = guardian_->TakeEnd();
    if (!end) {
      loop_.Unwatch(guardian_watch_);
      guardian_->Finish();
      return End(PhoneEnd::Reason::ServerKilled, SIGKILL);
    }
    if (end->number != server_number_) continue;
    loop_.ServeThrough(PollLoop::Turn::Output);
    guardian_->KillAll();
    if (WIFSIGNALED(end->status)) {
      End(PhoneEnd::Reason::ServerKilled, WTERMSIG(end->status));
    } else {
      End(PhoneEnd::Reason::ServerExited, WEXITSTATUS(end->status));
    }
  } while (guardian_->HasEnd());
}

std::vector<pid_t> SimulatedPhone::RunningProcesses(const std::string& name) const {
  if (!guardian_) return {};
  return ProcessesNamed(DescendantsIn(root_.Path(), guardian_->Process()), name);
}

void SimulatedPhone::WatchLimits() {
  constexpr auto PACE = std::chrono::milliseconds(200);
  loop_.After(PACE, [this] {
    if (!guardian_ || !IsRunning()) return;
    EndIfOver(limit_watch_.Look(guardian_->Process(), guardian_->TaskGroup()));
    WatchLimits();
  });
}

// Where the kernel does not hold the number of processes, a program that only starts copies of itself must be
// seen before it has many.
void SimulatedPhone::WatchTasks() {
  constexpr auto PACE = std::chrono::milliseconds(5);
  loop_.After(PACE, [this] {
    if (!guardian_ || !IsRunning()) return;
    TakeShortTurns();
    if (limit_watch_.MayHaveTooManyTasks(guardian_->Process())) {
      // While they are counted, there would be thousands more.
      StopProcessesIn(root_.Path());
      const std::string excess = limit_watch_.Look(guardian_->Process(), {});
      if (excess.empty()) ContinueProcessesIn(root_.Path());
      EndIfOver(excess);
    }
    WatchTasks();
  });
}

void SimulatedPhone::EndIfOver(const std::string& excess) {
  if (excess.empty() || !IsRunning()) return;
  // At once: before the guardian has its turn there may be many more.
  EndProcessesIn(root_.Path());
  guardian_->KillAll();
  End(PhoneEnd::Reason::OverLimit, 0, excess);
}

void SimulatedPhone::PowerOff() {
  if (std::exchange(powered_off_, true)) return;
  journal_.Add({.kind = JournalKind::Event, .text = "power off"});
  loop_.After(POWER_OFF_TIME, [this] {
    if (!IsRunning()) return;
    guardian_->KillAll();
    End(PhoneEnd::Reason::PoweredOff, 0);
  });
}

void SimulatedPhone::End(PhoneEnd::Reason reason, int status, const std::string& excess) {
  if (powered_off_) reason = PhoneEnd::Reason::PoweredOff;
  const PhoneEnd end = {reason, status, excess};
  std::function<void(const PhoneEnd&)> on_end;
  {
    const std::lock_guard lock(mutex_);
    if (!running_) return;
    running_ = false;
    on_end = on_end_;
  }
  journal_.Add({.kind = JournalKind::Event, .text = end.Text()});
  {
    const std::lock_guard lock(mutex_);
    end_ = end;
    ended_.notify_all();
  }
  if (on_end) on_end(end);
}

void SimulatedPhone::EndAtOnce(PhoneEnd::Reason reason) {
  loop_.Run([this, reason] {
    if (!IsRunning()) return;
    guardian_->KillAll();
    End(reason, 0);
  });
}

void SimulatedPhone::Stop() {
  EndAtOnce(PhoneEnd::Reason::Stopped);
}

void SimulatedPhone::CutPower() {
  EndAtOnce(PhoneEnd::Reason::PowerCut);
}

KeptFiles SimulatedPhone::TakeKeptFiles() const {
  KeptFiles files;
  const auto keep = [&](const std::string& path) { files[path] = root_.ReadFile(path, MOST_KEPT_BYTES); };
  for (const FlashPartition& partition : FLASH_PARTITIONS) keep(CharacterDevice(partition));
  for (const std::string folder : {"/mnt/fat", "/usr/share/usr_data/Photos"}) {
    if (!root_.Exists(folder)) continue;
    for (const std::string& name : root_.ListDirectory(folder)) {
      try {
        keep(folder + "/" + name);
      } catch (const std::exception&) {
        continue;  // a directory
      }
    }
  }
  return files;
}

bool SimulatedPhone::IsRunning() const {
  const std::lock_guard lock(mutex_);
  return running_;
}

std::optional<PhoneEnd> SimulatedPhone::WaitForEnd(std::chrono::milliseconds time_out) const {
  std::unique_lock lock(mutex_);
  ended_.wait_for(lock, time_out, [this] { return end_.has_value(); });
  return end_;
}

void SimulatedPhone::SetEnded(std::function<void(const PhoneEnd&)> ended) {
  const std::lock_guard lock(mutex_);
  on_end_ = std::move(ended);
}

std::string SimulatedPhone::HostPort() const {
  return Find<simulator::HostPort>().HostSide().DevicePath();
}

std::optional<Confinement> SimulatedPhone::GetConfinement() const {
  const std::lock_guard lock(mutex_);
  return confinement_;
}

pid_t SimulatedPhone::ServerProcess() const {
  const std::lock_guard lock(mutex_);
  return server_process_;
}

posix::FileDescriptor SimulatedPhone::OpenShell() {
  posix::FileDescriptor master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!master.IsOpen() || unlockpt(master.Get()) != 0) {
    posix::ThrowErrno("pseudo-terminal");
  }
  const posix::FileDescriptor terminal(ioctl(master.Get(), TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC));
  ProgramStart program = {"/bin/sh", {"sh", "-i"}, Environment({"PS1=phone:$PWD# "}), {}, true};
  for (int& descriptor : program.standard) descriptor = terminal.Get();
  loop_.Run([&] { StartProgram(program); });
  return master;
}

void SimulatedPhone::TakeAway(const std::string& path) {
  root_.Move(path, TAKEN_AWAY + path);
}

void SimulatedPhone::PutBack(const std::string& path) {
  root_.Move(TAKEN_AWAY + path, path);
}

}  // namespace simulator
