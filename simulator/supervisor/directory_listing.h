// Listing a directory of the PC by its descriptor, one of the phone's too.
#pragma once

#include <dirent.h>

#include <cstring>
#include <memory>

namespace simulator {

using Directory = std::unique_ptr<DIR, int (*)(DIR*)>;

// A directory that is closed even to its owner is opened for a moment. Null if there is none.
Directory OpenListing(int parent, const char* name);

// Calls `use(name)` for each entry but the two that every directory has.
template <typename Use>
void ForEachEntry(const Directory& directory, Use use) {
  while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
    if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) use(entry->d_name);
  }
}

}  // namespace simulator
