// Listing a directory of the PC by its descriptor, one of the phone's too.
#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <cstring>
#include <memory>

namespace simulator {

// A directory that is closed even to its owner is open to them until the listing ends.
class Listing {
 public:
  // Empty if there is no such directory.
  Listing(int parent, const char* name);
  ~Listing();
  Listing(const Listing&) = delete;
  Listing& operator=(const Listing&) = delete;

  // -1 if there is no such directory.
  int Descriptor() const {
    return directory_ ? dirfd(directory_.get()) : -1;
  }

  // Calls `use(name)` for each entry but the two that every directory has.
  template <typename Use>
  void ForEachEntry(Use use) const {
    while (const dirent* entry = directory_ ? readdir(directory_.get()) : nullptr) {
      if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) use(entry->d_name);
    }
  }

 private:
  std::unique_ptr<DIR, int (*)(DIR*)> directory_{nullptr, closedir};
  // The mode that the directory had, and the one that it has until the listing ends; equal if it was open.
  mode_t mode_ = 0, open_mode_ = 0;
};

}  // namespace simulator
