// Connects the terminal that phonesim runs on with a shell in the phone.
#pragma once

#include "posix/file_descriptor.h"

namespace simulator {

// Until the shell ends.
void RelayTerminal(const posix::FileDescriptor& shell);

}  // namespace simulator
