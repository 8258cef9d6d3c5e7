#include "simulator/supervisor/directory_listing.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "posix/file_descriptor.h"

namespace simulator {
namespace {

constexpr mode_t PERMISSIONS = 07777;
constexpr mode_t READ_AND_SEARCH = S_IRUSR | S_IXUSR;

mode_t ModeOf(int descriptor) {
  struct stat status;
  return fstat(descriptor, &status) == 0 ? status.st_mode & PERMISSIONS : READ_AND_SEARCH;
}

}  // namespace

Listing::Listing(int parent, const char* name) {
  constexpr int FLAGS = O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  // This descriptor is the phone's directory, whatever has its name by now.
  const posix::FileDescriptor place(openat(parent, name, O_PATH | FLAGS));
  if (!place.IsOpen()) return;
  mode_ = open_mode_ = ModeOf(place.Get());
  if ((mode_ & READ_AND_SEARCH) != READ_AND_SEARCH) {
    const std::string path = fmt::format("/proc/self/fd/{}", place.Get());
    // To root every directory is open.
    if (access(path.c_str(), R_OK | X_OK) != 0 && chmod(path.c_str(), mode_ | READ_AND_SEARCH) == 0) {
      open_mode_ = mode_ | READ_AND_SEARCH;
    }
  }
  const int opened = openat(place.Get(), ".", O_RDONLY | FLAGS);
  if (opened >= 0) directory_.reset(fdopendir(opened));
}

Listing::~Listing() {
  // A mode that the phone has set meanwhile stays.
  if (directory_ && mode_ != open_mode_ && ModeOf(Descriptor()) == open_mode_) fchmod(Descriptor(), mode_);
}

}  // namespace simulator
