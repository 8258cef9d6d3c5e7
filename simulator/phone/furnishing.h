// What the phone's file system holds before any model adds to it.
#pragma once

#include "simulator/phone/root_directory.h"

namespace simulator {

void PutUserland(RootDirectory& root);

void PutFactoryFiles(RootDirectory& root);

}  // namespace simulator
