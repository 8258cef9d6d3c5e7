// Where results are kept: a file of SQLite's, or a server of PostgreSQL's.
#pragma once

#include <filesystem>
#include <string>

namespace station {

struct ResultsAddress {
  enum class Kind { File, Server };

  Kind kind = Kind::File;
  std::string text;  // the file's path, or the server's address as it was given; there is no password in it

  // The folder for runs that could not be handed in.
  std::filesystem::path SpoolFolder() const;
};

// An address beginning with postgresql:// is a server's, and all others are files. Empty: the results.db of
// this user. Throws UsageError, also for a password in the address: everyone on this computer could read it
// there.
ResultsAddress ParseResultsAddress(const std::string& text);

// $XDG_DATA_HOME/phonetest, or ~/.local/share/phonetest. Throws UsageError if neither is known.
std::filesystem::path DataFolder();

// What may be shown of a text that is meant as an address.
std::string WithoutPassword(const std::string& address);

}  // namespace station
