#include "simulator/phone/removal.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>

namespace simulator {
namespace {

// Directories inside each other that are gone through; what is deeper is moved up first.
constexpr int DEEPEST = 32;

struct Removal {
  int top;  // the directory that everything is removed from
  unsigned moved = 0;
};

int OpenDirectory(int parent, const char* name) {
  constexpr int FLAGS = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  const int directory = openat(parent, name, FLAGS);
  if (directory >= 0 || errno != EACCES) return directory;
  fchmodat(parent, name, 0700, AT_SYMLINK_NOFOLLOW);
  return openat(parent, name, FLAGS);
}

void RemoveEntry(Removal& removal, int parent, const char* name, int depth);

void RemoveEntries(Removal& removal, int directory, int depth) {
  // A directory that changes meanwhile is listed again until it is empty or nothing more can be removed.
  alignas(dirent64) char entries[4096];
  fchmod(directory, 0700);
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
      RemoveEntry(removal, directory, entry->d_name, depth);
      struct stat status;
      if (fstatat(directory, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) removed = true;
    }
    if (!found || !removed) return;
  }
}

void RemoveEntry(Removal& removal, int parent, const char* name, int depth) {
  if (unlinkat(parent, name, 0) == 0 || (errno != EISDIR && errno != EPERM)) return;
  if (depth > DEEPEST) {
    char place[32];
    snprintf(place, sizeof place, ".deep-%u", ++removal.moved);
    if (renameat(parent, name, removal.top, place) == 0) return;
  }
  const int directory = OpenDirectory(parent, name);
  if (directory >= 0) {
    if (depth == 0) removal.top = directory;
    RemoveEntries(removal, directory, depth + 1);
    close(directory);
  }
  unlinkat(parent, name, AT_REMOVEDIR);
}

}  // namespace

void RemoveTree(int directory, const char* name) {
  Removal removal = {-1};
  RemoveEntry(removal, directory, name, 0);
}

void RemoveTree(const char* path) {
  RemoveTree(AT_FDCWD, path);
}

void RemoveLink(const char* path, const char* target) {
  char found[PATH_MAX];
  const ssize_t size = readlink(path, found, sizeof found);
  if (size > 0 && std::string_view(found, static_cast<size_t>(size)) == target) unlink(path);
}

}  // namespace simulator
