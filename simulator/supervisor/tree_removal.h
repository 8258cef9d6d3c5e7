// Removes a directory with all that is in it, whatever the rights on its entries. Allocates nothing, so a
// forked process of a program with threads may call it.
#pragma once

namespace simulator {

void RemoveTree(const char* path);

}  // namespace simulator
