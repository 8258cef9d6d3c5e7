#include "simulator/supervisor/directory_listing.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "posix/file_descriptor.h"

namespace simulator {

Directory OpenListing(int parent, const char* name) {
  constexpr int FLAGS = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  int opened = openat(parent, name, FLAGS);
  if (opened < 0 && errno == EACCES) {
    // This descriptor is the phone's directory, whatever has its name by now.
    const posix::FileDescriptor closed(openat(parent, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const std::string path = fmt::format("/proc/self/fd/{}", closed.Get());
    struct stat status;
    if (fstat(closed.Get(), &status) == 0 && chmod(path.c_str(), 0700) == 0) {
      opened = openat(closed.Get(), ".", FLAGS);
      chmod(path.c_str(), status.st_mode & 07777);
    }
  }
  return {opened < 0 ? nullptr : fdopendir(opened), closedir};
}

}  // namespace simulator
