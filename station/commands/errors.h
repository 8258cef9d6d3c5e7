// What can go wrong on the station's side, one type for each exit status. A failure that the phone reports is
// no exception but an outcome (exit status 1).
#pragma once

#include <stdexcept>

#include "posix/whole_output.h"

namespace station {

enum class ExitStatus {
  Passed = 0,
  DeviceFailure = 1,
  Usage = 2,
  LinkFailure = 3,
  PlanError = 4,
  Incomplete = 5,
  Aborted = 6,
  OutputLost = 7,  // wins over all: without its record a verdict is none
};

// The command line or an argument makes no sense.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The port cannot be opened, has hung up, or no whole answer came in time.
class LinkFailure : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The port has hung up: it will not work again until it is opened anew.
class LinkLost : public LinkFailure {
  using LinkFailure::LinkFailure;
};

// What was to be written could not be written whole.
using posix::OutputLost;

// A test plan cannot be read, or it asks for something that does not exist.
class PlanError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace station
