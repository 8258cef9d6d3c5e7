#include "simulator/supervisor/trapped_call.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace simulator {

namespace {

// The kernel's notification may be longer than the header's.
size_t NotificationSize() {
  seccomp_notif_sizes sizes = {};
  syscall(SYS_seccomp, SECCOMP_GET_NOTIF_SIZES, 0, &sizes);
  return std::max<size_t>(sizes.seccomp_notif, sizeof(seccomp_notif));
}

}  // namespace

NotificationListener::NotificationListener(posix::FileDescriptor listener)
    : listener_(std::move(listener)), received_(NotificationSize()) {}

std::optional<seccomp_notif> NotificationListener::Receive() {
  std::fill(received_.begin(), received_.end(), uint8_t{0});  // the kernel refuses other bytes than zeros
  if (ioctl(listener_.Get(), SECCOMP_IOCTL_NOTIF_RECV, received_.data()) != 0) return std::nullopt;
  seccomp_notif notification;
  memcpy(&notification, received_.data(), sizeof notification);
  return notification;
}

bool NotificationListener::StillWaits(uint64_t id) const {
  return ioctl(listener_.Get(), SECCOMP_IOCTL_NOTIF_ID_VALID, &id) == 0;
}

bool NotificationListener::Answer(uint64_t id, int64_t result) {
  seccomp_notif_resp response = {};
  response.id = id;
  response.val = result;
  return Send(response);
}

bool NotificationListener::Refuse(uint64_t id, int error) {
  seccomp_notif_resp response = {};
  response.id = id;
  response.error = -error;
  return Send(response);
}

bool NotificationListener::PassOn(uint64_t id) {
  seccomp_notif_resp response = {};
  response.id = id;
  response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
  return Send(response);
}

bool NotificationListener::AnswerWithDescriptor(uint64_t id, int descriptor, bool close_on_exec) {
  seccomp_notif_addfd addition = {};
  addition.id = id;
  addition.flags = SECCOMP_ADDFD_FLAG_SEND;
  addition.srcfd = static_cast<uint32_t>(descriptor);
  addition.newfd_flags = close_on_exec ? O_CLOEXEC : 0;
  if (ioctl(listener_.Get(), SECCOMP_IOCTL_NOTIF_ADDFD, &addition) >= 0) return true;
  if (errno == EMFILE) return Refuse(id, EMFILE);
  if (errno != EINVAL) return false;
  // Kernels before 5.14 add the descriptor and answer in two steps.
  addition.flags = 0;
  const int number = ioctl(listener_.Get(), SECCOMP_IOCTL_NOTIF_ADDFD, &addition);
  return number >= 0 ? Answer(id, number) : Refuse(id, errno);
}

bool NotificationListener::Send(const seccomp_notif_resp& response) {
  seccomp_notif_resp sent = response;
  return ioctl(listener_.Get(), SECCOMP_IOCTL_NOTIF_SEND, &sent) == 0;
}

}  // namespace simulator
