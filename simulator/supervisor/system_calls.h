// How the phone's system calls are answered.
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/phone/device_model.h"
#include "simulator/phone/faults.h"
#include "simulator/phone/journal.h"
#include "simulator/phone/poll_loop.h"
#include "simulator/phone/root_directory.h"
#include "simulator/supervisor/trapped_call.h"

namespace simulator {

// Which device an open descriptor of the phone belongs to, by what the descriptor refers to: this holds
// across dup, fork and threads, which numbers do not.
class DescriptorTable {
 public:
  struct Device {
    DeviceModel* model;
    std::string path;
    std::optional<std::weak_ptr<const void>> object;  // see OpenAnswer

    bool IsGone() const {
      return object && object->expired();
    }
  };

  // Forgets those that are gone.
  void Add(const struct stat& status, Device device) {
    std::erase_if(devices_, [](const auto& entry) { return entry.second.IsGone(); });
    devices_[{status.st_dev, status.st_ino}] = std::move(device);
  }
  const Device* Find(const struct stat& status) const {
    const auto found = devices_.find({status.st_dev, status.st_ino});
    return found == devices_.end() || found->second.IsGone() ? nullptr : &found->second;
  }

 private:
  std::map<std::pair<dev_t, ino_t>, Device> devices_;
};

// Answers the phone's system calls: finds the device that a call is about, lets its model answer, applies the
// faults asked for, and writes the journal. Lives on the phone's loop thread.
class SystemCalls {
 public:
  using Models = std::vector<std::unique_ptr<DeviceModel>>;

  SystemCalls(PhoneServices& phone, Faults& faults);

  void SetModels(const Models& models);
  // Answers what comes by this listener until its last process is gone.
  void Serve(posix::FileDescriptor listener);
  // Called before a process of the phone starts a thread or leaves its group.
  void SetStarting(std::function<void()> starting) {
    starting_ = std::move(starting);
  }
  void SetInstantSleeps(bool instant) {
    instant_sleeps_ = instant;
  }
  // The server runs under the emulator.
  void SetEmulated(bool emulated) {
    emulated_ = emulated;
  }

 private:
  using CallPointer = std::shared_ptr<TrappedCall>;

  void ServeNext(const std::shared_ptr<NotificationListener>& listener, PollLoop::Id watch, short events);
  void Dispatch(const CallPointer& call);

  // open_calls.cpp
  void Open(const CallPointer& call, int directory, uint64_t path, int flags, uint64_t mode);
  bool OpenProcessFile(TrappedCall& call, const std::string& path, int flags);
  void OpenDevice(TrappedCall& call, DeviceModel& model, const std::string& path, int flags);
  void OpenOrdinary(TrappedCall& call, const std::string& path, int flags, bool exists);
  void OpenShortened(TrappedCall& call, const std::string& path, int64_t size, int flags);
  void ReadLink(const CallPointer& call, int directory, size_t first);
  void ChangeOpenFile(const CallPointer& call);

  // request_calls.cpp
  void RequestDevice(const CallPointer& call);

  // process_calls.cpp
  void Exec(const CallPointer& call, int directory, size_t first);
  void Clone(const CallPointer& call);
  void LeaveGroup(const CallPointer& call);
  void Sleep(const CallPointer& call);
  void SetClock(const CallPointer& call);

  // signal_calls.cpp
  void Signal(const CallPointer& call);
  void SignalThread(const CallPointer& call);
  void Trace(const CallPointer& call);
  void AskAboutThread(const CallPointer& call);

  // Keeps a call to answer it later. Until then a sanitizer that stops the caller's process can interrupt it.
  void Hold(const CallPointer& call);
  void InterruptHeldCalls(pid_t process);
  void After(const FaultRule& rule, const CallPointer& call, std::function<void()> work);
  // Returns true if the rule has answered the call.
  bool RefusedBy(const FaultRule& rule, TrappedCall& call, JournalEntry entry);

  DeviceModel* ModelOf(const std::string& path) const;
  DeviceModel* FolderModelOf(const std::string& path) const;

  PhoneServices& phone_;
  Faults& faults_;
  std::map<std::string, DeviceModel*> models_;
  std::map<std::string, DeviceModel*> folders_;
  DescriptorTable descriptors_;
  std::vector<std::weak_ptr<TrappedCall>> held_;
  unsigned thread_lists_ = 0;
  std::chrono::steady_clock::time_point next_leaving_{};
  std::function<void()> starting_ = [] {};
  std::atomic<bool> instant_sleeps_ = false;
  std::atomic<bool> emulated_ = false;
};

}  // namespace simulator
