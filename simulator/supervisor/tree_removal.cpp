#include "simulator/supervisor/tree_removal.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace simulator {
namespace {

void RemoveEntries(int directory);

void RemoveEntry(int parent, const char* name) {
  if (unlinkat(parent, name, 0) == 0) return;
  if (errno == EISDIR || errno == EPERM) {
    fchmodat(parent, name, 0700, 0);
    const int directory = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (directory >= 0) {
      RemoveEntries(directory);
      close(directory);
    }
    unlinkat(parent, name, AT_REMOVEDIR);
  }
}

void RemoveEntries(int directory) {
  // A directory that changes under the listing is listed again until it is empty or nothing more goes.
  alignas(dirent64) char entries[4096];
  while (true) {
    lseek(directory, 0, SEEK_SET);
    const long size = syscall(SYS_getdents64, directory, entries, sizeof entries);
    bool found = false;
    bool removed = false;
    for (long offset = 0; offset < size;) {
      const auto* entry = reinterpret_cast<const dirent64*>(entries + offset);
      offset += entry->d_reclen;
      if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
      found = true;
      RemoveEntry(directory, entry->d_name);
      struct stat status;
      if (fstatat(directory, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) removed = true;
    }
    if (!found || !removed) return;
  }
}

}  // namespace

void RemoveTree(const char* path) {
  RemoveEntry(AT_FDCWD, path);
}

}  // namespace simulator
