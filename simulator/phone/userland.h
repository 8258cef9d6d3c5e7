// The phone's ordinary userland: shell, tools, directories and the files of a small embedded system.
#pragma once

#include "simulator/phone/root_directory.h"

namespace simulator {

void PutUserland(RootDirectory& root);

}  // namespace simulator
