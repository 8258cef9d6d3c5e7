// Pools of numbers in the database. A number goes to one phone only, whatever ends in the middle: it is given
// out in a transaction, and from then on it belongs to the phone.
#pragma once

#include <string>
#include <vector>

#include "station/results/connection.h"
#include "station/results/number_form.h"

namespace station {

// Each throws ResultsError.

// Makes the pool if there is none. Returns how many numbers were added. Throws UsageError if one of them is
// in a pool already, or if the pool is of another kind.
std::int64_t AddNumbers(Connection& connection, const std::string& pool, const NumberRange& range);

struct PoolRow {
  std::string name;
  std::string kind;
  std::int64_t left = 0;  // to be drawn
  std::int64_t reserved = 0;
  std::int64_t given_out = 0;
};
std::vector<PoolRow> Pools(Connection& connection);

// For whom a number is drawn.
struct Receiver {
  std::string phone;  // its serial number
  std::string run;
  std::string station;
};

struct NumberRow {
  std::string value;
  std::string state;  // "drawn", "written", "reserved", or "free" for one that was given back
  Receiver receiver;
  std::int64_t changed = 0;
};
std::vector<NumberRow> GivenNumbers(Connection& connection, const std::string& pool);

struct DrawnNumber {
  std::string value;
  bool fresh = true;  // false if the phone had it before
};

// The phone's number, or a new one. Throws UsageError if there is no such pool, or none is left in it.
DrawnNumber DrawNumber(Connection& connection, const std::string& pool, const Receiver& receiver);

// A step that uses it has begun: it may be in the phone.
void MarkWritten(Connection& connection, const std::string& value);

// Takes back a number that this run has drawn, that no step has used and that no later run has drawn again.
void GiveBack(Connection& connection, const std::string& value, const std::string& run);

// Numbers set apart for one station, which gives them out while the database is away. `block` names the
// station's block; it gets what is missing from `count`. Returns all of the block.
std::vector<std::string> ReserveNumbers(Connection& connection, const std::string& pool,
                                        const std::string& block, const std::string& station,
                                        std::size_t count);

// Makes a block's numbers that are still reserved free again. Returns how many they were.
std::int64_t GiveBackReserved(Connection& connection, const std::string& pool, const std::string& block);

// One of a block has been given out.
void SettleReserved(Connection& connection, const std::string& value, const Receiver& receiver);

}  // namespace station
