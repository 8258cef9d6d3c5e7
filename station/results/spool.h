// Runs that the database could not take, each in a file of its own: a line of JSON for its start, for each
// step, and for its end. They are handed in, in the order of their start, when the database is back.
#pragma once

#include <filesystem>
#include <string>

#include "posix/file_descriptor.h"
#include "station/results/record.h"

namespace station {

// The file of one run, locked as long as this object lives. What is written is on the disk when a function
// returns. Each throws OutputLost; what could not be written may be tried again.
class SpoolFile {
 public:
  SpoolFile(const std::filesystem::path& folder, const RunStart& start);

  void Add(const StoredStep& step);
  void Add(const RunEnd& end);

 private:
  void Open();
  void Write(const std::string& line);

  std::filesystem::path path_;
  posix::FileDescriptor descriptor_;
  off_t whole_ = 0;  // the bytes of whole lines
};

std::size_t SpooledRuns(const std::filesystem::path& folder);

// Stores the spooled runs, the oldest first and at most `most`, and removes each file when its run is in the
// database. A run that is still going on is left; nothing is done while another process hands in. A file that
// the database or this program refuses is kept, and does not hold up the others. Returns how many were handed
// in. Throws ResultsError.
std::size_t HandIn(RunStore& store, Connection& connection, std::size_t most = SIZE_MAX);

}  // namespace station
