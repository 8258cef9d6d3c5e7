// Linked into test programs that start phonesim: their phones see no others of this user, and no others see
// them. A test that lists all phones, or looks for one by its port, does not depend on what else runs or
// hangs on this machine.
#include <unistd.h>

#include <cstdlib>
#include <string>

[[maybe_unused]] const int phones_are_our_own =
    setenv("PHONESIM_GROUP", ("tests-" + std::to_string(getpid())).c_str(), 1);
