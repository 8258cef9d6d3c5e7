// phonesim lends the terminal that it was started on to a shell in the phone.
#pragma once

#include "posix/file_descriptor.h"

namespace simulator {

// Connects the terminal with a shell in the phone until the shell ends.
void RelayTerminal(const posix::FileDescriptor& shell);

}  // namespace simulator
