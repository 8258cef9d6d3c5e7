// A SQLite database as a file: its folder, what this user may do with it, and how the library is told its
// name.
#pragma once

#include <string>

namespace station {

// Throws UsageError for a name that the library cannot be told.
std::string QuotedFile(const std::string& path);

void MakeFolderOf(const std::string& file);

// Whether this user may read the file, and write either it or its folder not.
bool CanOnlyBeRead(const std::string& file);

// The name under which SQLite reads a file as one that does not change.
std::string ReadOnlyName(const std::string& file);

}  // namespace station
