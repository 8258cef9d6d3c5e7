// The phone's system calls as they come to the simulator, and the answers to them.
#pragma once

#include <linux/seccomp.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "posix/file_descriptor.h"
#include "simulator/supervisor/call_table.h"

namespace simulator {

class NotificationListener {
 public:
  explicit NotificationListener(posix::FileDescriptor listener);

  int Descriptor() const {
    return listener_.Get();
  }

  // The next call; none when its caller is gone already.
  std::optional<seccomp_notif> Receive();
  // The caller still waits, so what was read from its memory was its own.
  bool StillWaits(uint64_t id) const;

  // Each returns false if the caller is gone.
  bool Answer(uint64_t id, int64_t result);
  bool Refuse(uint64_t id, int error);
  bool PassOn(uint64_t id);  // the kernel does the call
  // The call returns a copy of `descriptor` in the caller.
  bool AnswerWithDescriptor(uint64_t id, int descriptor, bool close_on_exec);

 private:
  bool Send(const seccomp_notif_resp& response);

  posix::FileDescriptor listener_;
  std::vector<uint8_t> received_;
};

class TrappedCall {
 public:
  TrappedCall(std::shared_ptr<NotificationListener> listener, const seccomp_notif& notification,
              const Architecture& architecture, const CallRow& call)
      : listener_(std::move(listener)),
        notification_(notification),
        architecture_(architecture),
        call_(call) {}

  Call Kind() const {
    return call_.call;
  }
  TimeWidth Times() const {
    return call_.time;
  }
  bool Narrow() const {
    return architecture_.narrow;
  }
  pid_t Thread() const {
    return static_cast<pid_t>(notification_.pid);
  }
  uint64_t Argument(size_t index) const {
    return notification_.data.args[index];
  }
  int IntArgument(size_t index) const {
    return static_cast<int>(Argument(index));
  }

  // What was read from the caller's memory was its own only while this holds.
  bool StillWaits() const {
    return listener_->StillWaits(notification_.id);
  }

  // The first of these counts, later ones do nothing.
  void Answer(int64_t result) {
    if (Take()) listener_->Answer(notification_.id, result);
  }
  void Refuse(int error) {
    if (Take()) listener_->Refuse(notification_.id, error);
  }
  void PassOn() {
    if (Take()) listener_->PassOn(notification_.id);
  }
  void AnswerWithDescriptor(int descriptor, bool close_on_exec) {
    if (Take()) listener_->AnswerWithDescriptor(notification_.id, descriptor, close_on_exec);
  }

 private:
  bool Take() {
    return !std::exchange(answered_, true);
  }

  std::shared_ptr<NotificationListener> listener_;
  seccomp_notif notification_;
  const Architecture& architecture_;
  const CallRow& call_;
  bool answered_ = false;
};

}  // namespace simulator
