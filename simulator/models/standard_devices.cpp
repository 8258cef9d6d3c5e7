#include "simulator/models/standard_devices.h"

#include <cerrno>

namespace simulator {

std::vector<std::string> StandardDevices::Paths() const {
  return {"/dev/null", "/dev/zero", "/dev/full", "/dev/random", "/dev/urandom"};
}

OpenAnswer StandardDevices::Open(const OpenCall& call) {
  posix::FileDescriptor device(open(call.path.c_str(), call.ModeFlags() | O_CLOEXEC));
  if (!device.IsOpen()) return OpenAnswer::Refusal(errno);
  return OpenAnswer::PlainDescriptor(std::move(device));
}

}  // namespace simulator
