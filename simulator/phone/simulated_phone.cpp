#include "simulator/phone/simulated_phone.h"

#include "simulator/phone/machine.h"

namespace simulator {

SimulatedPhone::SimulatedPhone(PhoneOptions options)
    : machine_(std::make_unique<Machine>(std::move(options))) {}

SimulatedPhone::~SimulatedPhone() = default;

void SimulatedPhone::Boot() {
  machine_->Boot();
}
void SimulatedPhone::Stop() {
  machine_->Stop();
}
bool SimulatedPhone::IsRunning() const {
  return machine_->IsRunning();
}
std::optional<PhoneEnd> SimulatedPhone::WaitForEnd(std::chrono::milliseconds time_out) {
  return machine_->WaitForEnd(time_out);
}
void SimulatedPhone::SetEnded(std::function<void(const PhoneEnd&)> ended) {
  machine_->SetEnded(std::move(ended));
}

Journal& SimulatedPhone::GetJournal() {
  return machine_->journal;
}
Faults& SimulatedPhone::GetFaults() {
  return machine_->faults;
}
RootDirectory& SimulatedPhone::Root() {
  return machine_->root;
}
std::string SimulatedPhone::HostPort() const {
  return machine_->HostPortPath();
}
pid_t SimulatedPhone::ServerProcess() const {
  return machine_->ServerProcess();
}
std::string SimulatedPhone::ConsoleText() const {
  return machine_->console.Text();
}
void SimulatedPhone::SetInstantSleeps(bool instant) {
  machine_->calls.SetInstantSleeps(instant);
}
void SimulatedPhone::OnLoop(const std::function<void()>& work) {
  machine_->loop.Run(work);
}
std::string SimulatedPhone::Command(const std::vector<std::string>& words) {
  return machine_->Command(words);
}
std::vector<ModelCommand> SimulatedPhone::Commands() {
  return machine_->Commands();
}
void SimulatedPhone::RunShell(const std::string& command) {
  machine_->RunShell(command);
}
posix::FileDescriptor SimulatedPhone::OpenShell() {
  return machine_->OpenShell();
}
void SimulatedPhone::TakeAway(const std::string& path) {
  machine_->TakeAway(path);
}
void SimulatedPhone::PutBack(const std::string& path) {
  machine_->PutBack(path);
}
const std::vector<std::unique_ptr<DeviceModel>>& SimulatedPhone::Models() const {
  return machine_->models;
}

}  // namespace simulator
