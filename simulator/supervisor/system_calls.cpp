#include "simulator/supervisor/system_calls.h"

#include <poll.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "simulator/supervisor/phone_processes.h"

namespace simulator {

SystemCalls::SystemCalls(PhoneServices& phone, Faults& faults) : phone_(phone), faults_(faults) {}

void SystemCalls::SetModels(const Models& models) {
  for (const auto& model : models) {
    for (const std::string& path : model->Paths()) models_.emplace(path, model.get());
    for (const std::string& folder : model->Folders()) folders_.emplace(folder + "/", model.get());
  }
}

DeviceModel* SystemCalls::ModelOf(const std::string& path) const {
  const auto found = models_.find(path);
  return found == models_.end() ? nullptr : found->second;
}

DeviceModel* SystemCalls::FolderModelOf(const std::string& path) const {
  for (const auto& [folder, model] : folders_) {
    if (path.starts_with(folder)) return model;
  }
  return nullptr;
}

void SystemCalls::Serve(posix::FileDescriptor descriptor) {
  auto listener = std::make_shared<NotificationListener>(std::move(descriptor));
  auto watch = std::make_shared<PollLoop::Id>();
  *watch = phone_.loop.Watch(listener->Descriptor(), POLLIN,
                             [this, listener, watch](short events) { ServeNext(listener, *watch, events); });
}

void SystemCalls::ServeNext(const std::shared_ptr<NotificationListener>& listener, PollLoop::Id watch,
                            short events) {
  if ((events & POLLIN) == 0) return phone_.loop.Unwatch(watch);
  const std::optional<seccomp_notif> notification = listener->Receive();
  if (!notification) return;
  phone_.loop.ServeThrough(PollLoop::Turn::Output);
  const Architecture* architecture = FindArchitecture(notification->data.arch);
  const CallRow* number = architecture ? FindCall(*architecture, notification->data.nr) : nullptr;
  if (number == nullptr) {
    listener->PassOn(notification->id);
    return;
  }
  const auto call = std::make_shared<TrappedCall>(listener, *notification, *architecture, *number);
  try {
    Dispatch(call);
  } catch (const std::system_error& failure) {
    call->Refuse(failure.code().value());  // the simulator itself has no descriptor or memory left
  }
}

void SystemCalls::Dispatch(const CallPointer& call) {
  switch (call->Kind()) {
    case Call::None:
      return call->Refuse(ENOSYS);
    case Call::Open:
      return Open(call, AT_FDCWD, call->Argument(0), call->IntArgument(1), call->Argument(2));
    case Call::OpenAt:
      return Open(call, call->IntArgument(0), call->Argument(1), call->IntArgument(2), call->Argument(3));
    case Call::Create:
      return Open(call, AT_FDCWD, call->Argument(0), O_WRONLY | O_CREAT | O_TRUNC, call->Argument(1));
    case Call::ReadLink:
      return ReadLink(call, AT_FDCWD, 0);
    case Call::ReadLinkAt:
      return ReadLink(call, call->IntArgument(0), 1);
    case Call::Exec:
      return Exec(call, AT_FDCWD, 0);
    case Call::ExecAt:
      return Exec(call, call->IntArgument(0), 1);
    case Call::Sleep:
      return Sleep(call);
    case Call::SetTimeOfDay:
    case Call::SetClock:
    case Call::SetTime:
      return SetClock(call);
    case Call::Reboot:
      phone_.power_off();
      return call->Answer(0);
    case Call::DeviceRequest:
    case Call::CarriedRequest:
      return RequestDevice(call);
    case Call::Clone:
      return Clone(call);
    case Call::LeaveGroup:
      return LeaveGroup(call);
    case Call::Signal:
      return Signal(call);
    case Call::SignalThread:
    case Call::SignalThreadAlone:
      return SignalThread(call);
    case Call::Trace:
      return Trace(call);
    case Call::AskAboutThread:
      return AskAboutThread(call);
    case Call::ChangeMode:
    case Call::ChangeOwner:
      return ChangeOpenFile(call);
  }
}

void SystemCalls::Hold(const CallPointer& call) {
  std::erase_if(held_, [](const std::weak_ptr<TrappedCall>& held) { return held.expired(); });
  held_.push_back(call);
}

void SystemCalls::InterruptHeldCalls(pid_t process) {
  for (const std::weak_ptr<TrappedCall>& held : std::exchange(held_, {})) {
    const CallPointer call = held.lock();
    if (!call) continue;
    if (ProcessOf(call->Thread()) == process) {
      call->Refuse(EINTR);
    } else {
      held_.push_back(call);
    }
  }
}

void SystemCalls::After(const FaultRule& rule, const CallPointer& call, std::function<void()> work) {
  if (rule.delay.count() == 0) return work();
  Hold(call);
  phone_.loop.After(rule.delay, [call, work = std::move(work)] { work(); });
}

bool SystemCalls::RefusedBy(const FaultRule& rule, TrappedCall& call, JournalEntry entry) {
  if (rule.error == 0) return false;
  entry.error = rule.error;
  phone_.journal.Add(std::move(entry));
  call.Refuse(rule.error);
  return true;
}

}  // namespace simulator
