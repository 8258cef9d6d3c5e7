// A station's block of numbers that were reserved for it, in a file beside the spool. They are given out
// while the database is away, and the database is told when it is back.
#pragma once

#include <optional>
#include <string>

#include "posix/file_descriptor.h"
#include "station/results/numbers.h"

namespace station {

class ReservedNumbers {
 public:
  // Whether this station has, or had, a block of the pool.
  static bool Exist(const ResultsAddress& address, const std::string& pool);

  // Locks the block of the pool as long as this object lives. Throws OutputLost, and UsageError if its file
  // is damaged.
  ReservedNumbers(const ResultsAddress& address, const std::string& pool);

  // The phone's number from this block, or a new one; nothing if none is left. It is on the disk when this
  // returns.
  std::optional<DrawnNumber> Draw(const Receiver& receiver);

  // Keeps in mind that a phone has this number, which the database could not be told.
  void Note(const std::string& value, const Receiver& receiver);

  // Tells the database what this station gave out of all its blocks, so that other stations know it. Throws
  // ResultsError.
  static void SettleAll(Connection& connection);

  // Tells the database what was given out, and fills the block up to `count` for this station. Throws
  // ResultsError.
  void Settle(Connection& connection, std::size_t count, const std::string& station = "");

  // Tells the database which numbers phones have, and returns the others to their pool. Returns how many it
  // returned. Throws ResultsError.
  std::int64_t GiveBack(Connection& connection);

 private:
  struct Entry {
    std::string value;
    Receiver receiver;  // without a phone: not given out
  };

  void Read();
  void Write() const;

  std::string pool_;
  std::string path_;
  posix::FileDescriptor lock_;
  std::string block_;  // its name in the database
  std::vector<Entry> entries_;
};

}  // namespace station
