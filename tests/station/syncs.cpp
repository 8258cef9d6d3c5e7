#include "tests/station/syncs.h"

#include <filesystem>
#include <mutex>
#include <regex>

extern "C" int __real_fsync(int descriptor);
extern "C" int __real_fdatasync(int descriptor);

namespace {

std::mutex mutex;
std::string syncs;

void Note(int descriptor) {
  std::error_code error;
  const auto path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
  const std::lock_guard lock(mutex);
  syncs += path.filename().string() + " ";
}

}  // namespace

extern "C" int __wrap_fsync(int descriptor) {
  Note(descriptor);
  return __real_fsync(descriptor);
}

extern "C" int __wrap_fdatasync(int descriptor) {
  Note(descriptor);
  return __real_fdatasync(descriptor);
}

std::string TakeSyncs() {
  const std::lock_guard lock(mutex);
  return std::regex_replace(std::exchange(syncs, ""), std::regex("-[0-9a-f]{16,}"), "");
}
