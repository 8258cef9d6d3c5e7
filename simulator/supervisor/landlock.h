// Landlock: the kernel's own means to confine a process, on top of the root directory and the list of calls.
// What it confines depends on the kernel; nothing else here depends on it.
#pragma once

#include <cstdint>
#include <string>

namespace simulator {

enum LandlockScope : uint32_t {
  LANDLOCK_FILES = 1,    // only those beneath the root directory
  LANDLOCK_TCP = 2,      // no connection, no listener
  LANDLOCK_DEVICES = 4,  // no driver request on a device file that the program has opened itself
  LANDLOCK_SIGNALS = 8,  // to the program's own processes only
  LANDLOCK_SOCKETS = 16  // no connection to an abstract socket outside
};

// Confines the calling process, whose root directory is the phone's, in everything that the kernel offers.
// Returns the scopes that hold now. Allocates nothing.
uint32_t ConfineByLandlock();

// "files, TCP"; empty for none.
std::string LandlockText(uint32_t scopes);

}  // namespace simulator
