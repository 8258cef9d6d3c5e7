// The ordinary files with which a phone leaves the factory: version texts, the user's settings with their
// sounds and scripts, the call meter, the Bluetooth chip's start-up script, and the folders for what is
// written later.
#pragma once

#include "simulator/phone/root_directory.h"

namespace simulator {

void PutFactoryFiles(RootDirectory& root);

}  // namespace simulator
