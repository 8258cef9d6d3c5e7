// Answers the phone's system calls: finds the device that a call is about, lets its model answer, strikes
// with the faults asked for, and writes the journal. Lives on the phone's loop thread.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "simulator/phone/device_model.h"
#include "simulator/phone/faults.h"
#include "simulator/phone/journal.h"
#include "simulator/phone/root_directory.h"
#include "simulator/supervisor/descriptor_table.h"
#include "simulator/supervisor/notification_listener.h"
#include "simulator/supervisor/poll_loop.h"
#include "simulator/supervisor/trapped_call.h"

namespace simulator {

class SystemCalls {
 public:
  using Models = std::vector<std::unique_ptr<DeviceModel>>;

  SystemCalls(PhoneServices& phone, Faults& faults);

  void SetModels(const Models& models);
  // Answers what comes by this listener until its last process is gone.
  void Serve(posix::FileDescriptor listener);
  void SetInstantSleeps(bool instant) {
    instant_sleeps_ = instant;
  }

 private:
  using CallPointer = std::shared_ptr<TrappedCall>;

  void ServeNext(const std::shared_ptr<NotificationListener>& listener, PollLoop::Id watch, short events);
  void Dispatch(const CallPointer& call);

  // open_calls.cpp
  void Open(const CallPointer& call, int directory, uint64_t path, int flags);
  void OpenExtensible(const CallPointer& call);
  bool OpenRealProcessFile(TrappedCall& call, const std::string& path, int flags);
  void OpenDevice(TrappedCall& call, DeviceModel& model, const std::string& path, int flags);
  void OpenOrdinary(TrappedCall& call, const std::string& path, int flags, bool exists);
  void OpenShortened(TrappedCall& call, const std::string& path, int64_t size, int flags);
  void ReadLink(const CallPointer& call, int directory, size_t first);

  // exec_calls.cpp
  void Exec(const CallPointer& call, int directory, size_t first);

  // thread_calls.cpp
  void Clone(const CallPointer& call);

  // request_calls.cpp
  void RequestDevice(const CallPointer& call);

  // time_calls.cpp
  void Sleep(const CallPointer& call);
  void SetClock(const CallPointer& call);

  // A call that is answered later: until then a sanitizer that stops its process can break it off.
  void Hold(const CallPointer& call);
  void InterruptHeldCalls(pid_t process);
  void After(const FaultRule& rule, const CallPointer& call, std::function<void()> work);
  // True when the rule has answered the call.
  bool StrikeDead(const FaultRule& rule, TrappedCall& call, JournalEntry entry);

  DeviceModel* ModelOf(const std::string& path) const;
  DeviceModel* FolderModelOf(const std::string& path) const;

  PhoneServices& phone_;
  Faults& faults_;
  std::map<std::string, DeviceModel*> models_;
  std::map<std::string, DeviceModel*> folders_;
  DescriptorTable descriptors_;
  std::vector<std::weak_ptr<TrappedCall>> held_;
  std::atomic<bool> instant_sleeps_ = false;
};

}  // namespace simulator
