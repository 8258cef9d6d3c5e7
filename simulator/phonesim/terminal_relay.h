// Connects the terminal that phonesim runs on with a shell in the phone.
#pragma once

#include "simulator/file_descriptor.h"

namespace simulator {

// Until the shell ends.
void RelayTerminal(const FileDescriptor& shell);

}  // namespace simulator
